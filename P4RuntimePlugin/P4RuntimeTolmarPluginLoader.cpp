#include "P4RuntimePlugin/P4RuntimeTolmarPluginLoader.h"

namespace P4RuntimeTolmar {

TolmarP4RuntimePluginLoader::TolmarP4RuntimePluginLoader()
    : PluginBase(P4Runtime::DefaultPluginLoader(), "TolmarP4RuntimePlugin") {}

TolmarP4RuntimePluginLoader::~TolmarP4RuntimePluginLoader() = default;

void TolmarP4RuntimePluginLoader::init(P4Runtime::PluginContext* context) {
  plugin_ = Quill::allocate<TolmarP4RuntimePlugin>(Quill::Name("Tolmar"));
  plugin_->init(Quill::Ptr<P4Runtime::PluginContext>(context));
}

}  // namespace P4RuntimeTolmar
