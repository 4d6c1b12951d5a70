// The config and status entities of the three table kinds. They belong to the hardware library, which the
// agent and the hardware programming agent share.
#pragma once

#include "P4RuntimeTolmar/Records.h"
#include "P4RuntimeTolmar/TableEntityOf.h"

namespace TolmarHwLib {

class L3TunnelTH3Config final
    : public TableEntityOf<L3TunnelTH3Config, L3TunnelTH3Key, L3TunnelTH3ConfigEntry> {
 public:
  using TableEntityOf::TableEntityOf;
  ~L3TunnelTH3Config() override;
  static const Quill::TypeNode _quillType;
};

class L3TunnelTH3Status final
    : public TableEntityOf<L3TunnelTH3Status, L3TunnelTH3Key, L3TunnelTH3StatusEntry> {
 public:
  using TableEntityOf::TableEntityOf;
  ~L3TunnelTH3Status() override;
  static const Quill::TypeNode _quillType;
};

class MyStationTcamTH3Config final
    : public TableEntityOf<MyStationTcamTH3Config, MyStationTcamTH3Key, MyStationTcamTH3ConfigEntry> {
 public:
  using TableEntityOf::TableEntityOf;
  ~MyStationTcamTH3Config() override;
  static const Quill::TypeNode _quillType;
};

class MyStationTcamTH3Status final
    : public TableEntityOf<MyStationTcamTH3Status, MyStationTcamTH3Key, MyStationTcamTH3StatusEntry> {
 public:
  using TableEntityOf::TableEntityOf;
  ~MyStationTcamTH3Status() override;
  static const Quill::TypeNode _quillType;
};

class L3IifTH3Config final : public TableEntityOf<L3IifTH3Config, L3IifTH3Key, L3IifTH3ConfigEntry> {
 public:
  using TableEntityOf::TableEntityOf;
  ~L3IifTH3Config() override;
  static const Quill::TypeNode _quillType;
};

class L3IifTH3Status final : public TableEntityOf<L3IifTH3Status, L3IifTH3Key, L3IifTH3StatusEntry> {
 public:
  using TableEntityOf::TableEntityOf;
  ~L3IifTH3Status() override;
  static const Quill::TypeNode _quillType;
};

extern template class TableEntityOf<L3TunnelTH3Config, L3TunnelTH3Key, L3TunnelTH3ConfigEntry>;
extern template class TableEntityOf<L3TunnelTH3Status, L3TunnelTH3Key, L3TunnelTH3StatusEntry>;
extern template class TableEntityOf<MyStationTcamTH3Config, MyStationTcamTH3Key, MyStationTcamTH3ConfigEntry>;
extern template class TableEntityOf<MyStationTcamTH3Status, MyStationTcamTH3Key, MyStationTcamTH3StatusEntry>;
extern template class TableEntityOf<L3IifTH3Config, L3IifTH3Key, L3IifTH3ConfigEntry>;
extern template class TableEntityOf<L3IifTH3Status, L3IifTH3Key, L3IifTH3StatusEntry>;

extern template class TableNotifieeConst<L3TunnelTH3Config>;
extern template class TableNotifieeConst<L3TunnelTH3Status>;
extern template class TableNotifieeConst<MyStationTcamTH3Config>;
extern template class TableNotifieeConst<MyStationTcamTH3Status>;
extern template class TableNotifieeConst<L3IifTH3Config>;
extern template class TableNotifieeConst<L3IifTH3Status>;

}  // namespace TolmarHwLib
