#include "vesta/VestaBase.h"

#include "vesta/EventSource.h"

namespace Vesta {

VestaDebug::VestaDebug(std::shared_ptr<const Cairn::DebugHandler> handler)
    : handler_(handler ? std::move(handler) : std::make_shared<const Cairn::DebugHandler>()) {}
VestaDebug::~VestaDebug() = default;

EventSource::~EventSource() = default;

}  // namespace Vesta
