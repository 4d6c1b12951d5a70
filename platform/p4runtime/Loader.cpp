#include "p4runtime/Loader.h"

namespace Plugin {

LoaderInitCaller::~LoaderInitCaller() = default;

namespace Impl {

void LoaderImpl::registerPlugin(const std::string& plugin, const std::string& loader,
                                const std::string& version, const std::string& description,
                                LoaderInitCaller* caller) {
  registrations_.push_back({plugin, loader, version, description, caller});
}

void LoaderImpl::registrationDel(const LoaderInitCaller* caller) {
  std::erase_if(registrations_, [caller](const Registration& entry) { return entry.caller == caller; });
}

}  // namespace Impl

}  // namespace Plugin
