#include "P4RuntimeTolmar/Entities.h"

namespace TolmarHwLib {

namespace {

template <class Entity>
constexpr Quill::TypeNode tableType(std::string_view name) {
  Quill::TypeNode node{};
  node.name = name;
  node.newEntityForDir = [](const Quill::Name& entityName, const Quill::Ptr<Quill::Entity>&) {
    return Quill::Ptr<Quill::Entity>(Quill::allocate<Entity>(entityName));
  };
  return node;
}

}  // namespace

template class TableEntityOf<L3TunnelTH3Config, L3TunnelTH3Key, L3TunnelTH3ConfigEntry>;
template class TableEntityOf<L3TunnelTH3Status, L3TunnelTH3Key, L3TunnelTH3StatusEntry>;
template class TableEntityOf<MyStationTcamTH3Config, MyStationTcamTH3Key, MyStationTcamTH3ConfigEntry>;
template class TableEntityOf<MyStationTcamTH3Status, MyStationTcamTH3Key, MyStationTcamTH3StatusEntry>;
template class TableEntityOf<L3IifTH3Config, L3IifTH3Key, L3IifTH3ConfigEntry>;
template class TableEntityOf<L3IifTH3Status, L3IifTH3Key, L3IifTH3StatusEntry>;

template class TableNotifieeConst<L3TunnelTH3Config>;
template class TableNotifieeConst<L3TunnelTH3Status>;
template class TableNotifieeConst<MyStationTcamTH3Config>;
template class TableNotifieeConst<MyStationTcamTH3Status>;
template class TableNotifieeConst<L3IifTH3Config>;
template class TableNotifieeConst<L3IifTH3Status>;

L3TunnelTH3Config::~L3TunnelTH3Config() = default;
L3TunnelTH3Status::~L3TunnelTH3Status() = default;
MyStationTcamTH3Config::~MyStationTcamTH3Config() = default;
MyStationTcamTH3Status::~MyStationTcamTH3Status() = default;
L3IifTH3Config::~L3IifTH3Config() = default;
L3IifTH3Status::~L3IifTH3Status() = default;

constinit const Quill::TypeNode L3TunnelTH3Config::_quillType =
    tableType<L3TunnelTH3Config>("TolmarHwLib::L3TunnelTH3Config");
constinit const Quill::TypeNode L3TunnelTH3Status::_quillType =
    tableType<L3TunnelTH3Status>("TolmarHwLib::L3TunnelTH3Status");
constinit const Quill::TypeNode MyStationTcamTH3Config::_quillType =
    tableType<MyStationTcamTH3Config>("TolmarHwLib::MyStationTcamTH3Config");
constinit const Quill::TypeNode MyStationTcamTH3Status::_quillType =
    tableType<MyStationTcamTH3Status>("TolmarHwLib::MyStationTcamTH3Status");
constinit const Quill::TypeNode L3IifTH3Config::_quillType =
    tableType<L3IifTH3Config>("TolmarHwLib::L3IifTH3Config");
constinit const Quill::TypeNode L3IifTH3Status::_quillType =
    tableType<L3IifTH3Status>("TolmarHwLib::L3IifTH3Status");

namespace {

// The entity manager makes entities by type name, so the types are known as soon as the library is loaded.
[[maybe_unused]] const bool registered = [] {
  for (const Quill::TypeNode* node :
       {&L3TunnelTH3Config::_quillType, &L3TunnelTH3Status::_quillType, &MyStationTcamTH3Config::_quillType,
        &MyStationTcamTH3Status::_quillType, &L3IifTH3Config::_quillType, &L3IifTH3Status::_quillType}) {
    Quill::typeNodeIs(node);
  }
  return true;
}();

}  // namespace

}  // namespace TolmarHwLib
