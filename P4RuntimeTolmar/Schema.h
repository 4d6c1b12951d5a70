// The only place where the columns of the records are written down. Names, order and types are the row
// format; offsets, lengths, descriptors, conversions, hashes and orders all follow from here.
#pragma once

#include <string_view>
#include <tuple>

#include "P4RuntimeTolmar/Records.h"

namespace TolmarHwLib {

/// One column: its name and the field that it carries.
template <class Record, class Value>
struct Column {
  using Type = Value;
  std::string_view name;
  Value Record::*member;
};
template <class Record, class Value>
Column(std::string_view, Value Record::*) -> Column<Record, Value>;

/// RowSchema<Key>::columns are the key columns in key order. RowSchema<Entry> has rowTypeName and the columns
/// in three tuples: head (bookkeeping), key and data, in this order.
template <class Record>
struct RowSchema;

inline constexpr auto kConfigHead = std::tuple{Column{"genId", &ConfigBookkeeping::genId},
                                               Column{"entryHandle", &ConfigBookkeeping::entryHandle},
                                               Column{"valid", &ConfigBookkeeping::valid}};
inline constexpr auto kStatusHead = std::tuple{
    Column{"genId", &StatusBookkeeping::genId}, Column{"entryHandle", &StatusBookkeeping::entryHandle},
    Column{"errorCode", &StatusBookkeeping::errorCode}, Column{"deleted", &StatusBookkeeping::deleted}};

template <>
struct RowSchema<L3TunnelTH3Key> {
  using Record = L3TunnelTH3Key;
  static constexpr auto columns = std::tuple{
      Column{"sip", &Record::sip}, Column{"dip", &Record::dip}, Column{"protocol", &Record::protocol},
      Column{"l4DestPort", &Record::l4DestPort}, Column{"l4SrcPort", &Record::l4SrcPort}};
};

template <>
struct RowSchema<L3TunnelTH3ConfigEntry> {
  using Record = L3TunnelTH3ConfigEntry;
  using Key = L3TunnelTH3Key;
  static constexpr std::string_view rowTypeName = "TolmarHwLib::L3TunnelTH3ConfigEntryRow";
  static constexpr auto head = kConfigHead;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr auto data =
      std::tuple{Column{"allowedPortBitmapProfilePtr", &Record::allowedPortBitmapProfilePtr},
                 Column{"bfdEnable", &Record::bfdEnable},
                 Column{"doNotChangeInnerHdrDscp", &Record::doNotChangeInnerHdrDscp},
                 Column{"grePayloadIpv4", &Record::grePayloadIpv4},
                 Column{"grePayloadIpv6", &Record::grePayloadIpv6},
                 Column{"l3Iif", &Record::l3Iif},
                 Column{"payloadIpv4", &Record::payloadIpv4},
                 Column{"payloadIpv6", &Record::payloadIpv6},
                 Column{"subTunnelType", &Record::subTunnelType},
                 Column{"tunnelClassId", &Record::tunnelClassId},
                 Column{"tunnelType", &Record::tunnelType},
                 Column{"useOuterHdrDscp", &Record::useOuterHdrDscp},
                 Column{"useOuterHdrTtl", &Record::useOuterHdrTtl}};
};

template <>
struct RowSchema<L3TunnelTH3StatusEntry> {
  using Key = L3TunnelTH3Key;
  static constexpr std::string_view rowTypeName = "TolmarHwLib::L3TunnelTH3StatusEntryRow";
  static constexpr auto head = kStatusHead;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr std::tuple<> data{};
};

template <>
struct RowSchema<MyStationTcamTH3Key> {
  using Record = MyStationTcamTH3Key;
  static constexpr auto columns =
      std::tuple{Column{"macAddr", &Record::macAddr},         Column{"vlanId", &Record::vlanId},
                 Column{"portNum", &Record::portNum},         Column{"t", &Record::t},
                 Column{"macAddrMask", &Record::macAddrMask}, Column{"vlanIdMask", &Record::vlanIdMask},
                 Column{"portNumMask", &Record::portNumMask}, Column{"tMask", &Record::tMask},
                 Column{"priority", &Record::priority}};
};

template <>
struct RowSchema<MyStationTcamTH3ConfigEntry> {
  using Record = MyStationTcamTH3ConfigEntry;
  using Key = MyStationTcamTH3Key;
  static constexpr std::string_view rowTypeName = "TolmarHwLib::MyStationTcamTH3ConfigEntryRow";
  static constexpr auto head = kConfigHead;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr auto data =
      std::tuple{Column{"arpRarpTerminationAllowed", &Record::arpRarpTerminationAllowed},
                 Column{"copyToCpu", &Record::copyToCpu},
                 Column{"discard", &Record::discard},
                 Column{"ipv4MulticastTerminationAllowed", &Record::ipv4MulticastTerminationAllowed},
                 Column{"ipv4TerminationAllowed", &Record::ipv4TerminationAllowed},
                 Column{"ipv6MulticastTerminationAllowed", &Record::ipv6MulticastTerminationAllowed},
                 Column{"ipv6TerminationAllowed", &Record::ipv6TerminationAllowed},
                 Column{"mplsTerminationAllowed", &Record::mplsTerminationAllowed}};
};

template <>
struct RowSchema<MyStationTcamTH3StatusEntry> {
  using Key = MyStationTcamTH3Key;
  static constexpr std::string_view rowTypeName = "TolmarHwLib::MyStationTcamTH3StatusEntryRow";
  static constexpr auto head = kStatusHead;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr std::tuple<> data{};
};

template <>
struct RowSchema<L3IifTH3Key> {
  static constexpr auto columns = std::tuple{Column{"l3Iif", &L3IifTH3Key::l3Iif}};
};

template <>
struct RowSchema<L3IifTH3ConfigEntry> {
  using Record = L3IifTH3ConfigEntry;
  using Key = L3IifTH3Key;
  static constexpr std::string_view rowTypeName = "TolmarHwLib::L3IifTH3ConfigEntryRow";
  static constexpr auto head = kConfigHead;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr auto data = std::tuple{Column{"classId", &Record::classId},
                                          Column{"ecnDecapMappingPtr", &Record::ecnDecapMappingPtr},
                                          Column{"flexCtrBaseCounterIdx", &Record::flexCtrBaseCounterIdx},
                                          Column{"flexCtrOffsetMode", &Record::flexCtrOffsetMode},
                                          Column{"flexCtrPoolNumber", &Record::flexCtrPoolNumber},
                                          Column{"intEnable", &Record::intEnable},
                                          Column{"ipmcL3Iif", &Record::ipmcL3Iif},
                                          Column{"ipOptionProfileIndex", &Record::ipOptionProfileIndex},
                                          Column{"l3IifProfileIndex", &Record::l3IifProfileIndex},
                                          Column{"vrf", &Record::vrf}};
};

template <>
struct RowSchema<L3IifTH3StatusEntry> {
  using Key = L3IifTH3Key;
  static constexpr std::string_view rowTypeName = "TolmarHwLib::L3IifTH3StatusEntryRow";
  static constexpr auto head = kStatusHead;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr std::tuple<> data{};
};

}  // namespace TolmarHwLib
