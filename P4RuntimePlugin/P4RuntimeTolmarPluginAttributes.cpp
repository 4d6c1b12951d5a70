// The attributes of the plugin: setters and the notifications that do nothing by default.
#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "quill/Attribute.h"

namespace P4RuntimeTolmar {

void TolmarP4RuntimePlugin::l3TunnelIpv4TH3ConfigIs(const L3TunnelConfigPtr& value) {
  Quill::attributeIs(*this, l3TunnelIpv4TH3Config_, value, &NotifieeConst::onL3TunnelIpv4TH3Config);
}

void TolmarP4RuntimePlugin::l3TunnelIpv4TH3StatusIs(const L3TunnelStatusPtr& value) {
  Quill::attributeIs(*this, l3TunnelIpv4TH3Status_, value, &NotifieeConst::onL3TunnelIpv4TH3Status);
}

void TolmarP4RuntimePlugin::l3TunnelIpv6TH3ConfigIs(const L3TunnelConfigPtr& value) {
  Quill::attributeIs(*this, l3TunnelIpv6TH3Config_, value, &NotifieeConst::onL3TunnelIpv6TH3Config);
}

void TolmarP4RuntimePlugin::l3TunnelIpv6TH3StatusIs(const L3TunnelStatusPtr& value) {
  Quill::attributeIs(*this, l3TunnelIpv6TH3Status_, value, &NotifieeConst::onL3TunnelIpv6TH3Status);
}

void TolmarP4RuntimePlugin::myStationTcamTH3ConfigIs(const MyStationTcamConfigPtr& value) {
  Quill::attributeIs(*this, myStationTcamTH3Config_, value, &NotifieeConst::onMyStationTcamTH3Config);
}

void TolmarP4RuntimePlugin::myStationTcamTH3StatusIs(const MyStationTcamStatusPtr& value) {
  Quill::attributeIs(*this, myStationTcamTH3Status_, value, &NotifieeConst::onMyStationTcamTH3Status);
}

void TolmarP4RuntimePlugin::l3IifTH3ConfigIs(const L3IifConfigPtr& value) {
  Quill::attributeIs(*this, l3IifTH3Config_, value, &NotifieeConst::onL3IifTH3Config);
}

void TolmarP4RuntimePlugin::l3IifTH3StatusIs(const L3IifStatusPtr& value) {
  Quill::attributeIs(*this, l3IifTH3Status_, value, &NotifieeConst::onL3IifTH3Status);
}

void TolmarP4RuntimePlugin::l3TunnelIpv4TH3PhpSmIs(const L3TunnelSmPtr& value) {
  Quill::attributeIs(*this, l3TunnelIpv4TH3PhpSm_, value, &NotifieeConst::onL3TunnelIpv4TH3PhpSm);
}

void TolmarP4RuntimePlugin::l3TunnelIpv6TH3PhpSmIs(const L3TunnelSmPtr& value) {
  Quill::attributeIs(*this, l3TunnelIpv6TH3PhpSm_, value, &NotifieeConst::onL3TunnelIpv6TH3PhpSm);
}

void TolmarP4RuntimePlugin::l3IifTH3PhpSmIs(const L3IifSmPtr& value) {
  Quill::attributeIs(*this, l3IifTH3PhpSm_, value, &NotifieeConst::onL3IifTH3PhpSm);
}

void TolmarP4RuntimePlugin::myStationTcamTH3PhpSmIs(const MyStationTcamSmPtr& value) {
  Quill::attributeIs(*this, myStationTcamTH3PhpSm_, value, &NotifieeConst::onMyStationTcamTH3PhpSm);
}

TolmarP4RuntimePlugin::NotifieeConst::~NotifieeConst() = default;
void TolmarP4RuntimePlugin::NotifieeConst::onL3TunnelIpv4TH3Config() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3TunnelIpv4TH3Status() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3TunnelIpv6TH3Config() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3TunnelIpv6TH3Status() {}
void TolmarP4RuntimePlugin::NotifieeConst::onMyStationTcamTH3Config() {}
void TolmarP4RuntimePlugin::NotifieeConst::onMyStationTcamTH3Status() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3IifTH3Config() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3IifTH3Status() {}
void TolmarP4RuntimePlugin::NotifieeConst::onVrfSm() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3TunnelIpv4TH3PhpSm() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3TunnelIpv6TH3PhpSm() {}
void TolmarP4RuntimePlugin::NotifieeConst::onL3IifTH3PhpSm() {}
void TolmarP4RuntimePlugin::NotifieeConst::onMyStationTcamTH3PhpSm() {}

}  // namespace P4RuntimeTolmar
