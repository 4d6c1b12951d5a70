#include "P4RuntimePlugin/P4RuntimePluginHelper.h"

namespace P4Runtime {

namespace {

using QuillVesta::QuillVestaType;

// ASCII letters alone, whatever the locale.
void lowerFirst(Quill::String& text) {
  if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z') text[0] = static_cast<char>(text[0] - 'A' + 'a');
}

}  // namespace

Quill::String P4RuntimePluginHelper::vestaPathConfig(Quill::String tableName) const {
  return TolmarHwLib::configPath(pathPrefix_, tableName);
}

void P4RuntimePluginHelper::mountVestaTables(Quill::String typePrefix, Quill::String tableName,
                                             Quill::String collectionName, unsigned capacity) {
  lowerFirst(collectionName);
  const auto mountOne = [&](QuillVestaType type, const Quill::String& path, const Quill::String& typeName) {
    QuillVesta::MountDescription description(type);
    description.collectionIs(collectionName, capacity);
    const QuillVesta::Mount mount(entityManager_);
    mount.doMount(path, typeName, description);
  };
  mountOne(QuillVestaType::writer, vestaPathConfig(tableName), typePrefix + "Config");
  mountOne(QuillVestaType::reader, TolmarHwLib::statusPath(pathPrefix_, tableName), typePrefix + "Status");
}

void P4RuntimePluginHelper::unmountConfigVestaTable(Quill::String tableName) {
  const QuillVesta::Mount mount(entityManager_);
  const Quill::String path = vestaPathConfig(std::move(tableName));
  mount.cleanup(path);
  mount.doUnmount(path);
}

void P4RuntimePluginHelper::registerWrapper(const Quill::String& lumenTableName,
                                            const std::string& rowTypeName,
                                            const std::shared_ptr<Lumen::LmTableImplementation>& wrapper) {
  lumenDb_->registerTable(lumenTableName, rowTypeName, Lumen::TableType::external, 256, 256, "", {});
  lumenDb_->tableImplementationIs(lumenTableName, wrapper);
}

}  // namespace P4Runtime
