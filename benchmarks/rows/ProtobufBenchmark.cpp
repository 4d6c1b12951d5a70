// The record of RowBenchmark.cpp as a protobuf message; nothing where protobuf is not installed.
#if __has_include("iif_entry.pb.h")

#include <benchmark/benchmark.h>

#include "benchmarks/rows/PackedEntry.h"
#include "iif_entry.pb.h"

namespace TolmarHwLib {
namespace {

void fillMessage(tolmar_bench::IifEntry& message, const L3IifTH3ConfigEntry& entry) {
  message.set_gen_id(entry.genId);
  message.set_entry_handle(entry.entryHandle);
  message.set_valid(entry.valid);
  message.set_l3_iif(entry.l3Iif);
  message.set_class_id(entry.classId);
  message.set_ecn_decap_mapping_ptr(entry.ecnDecapMappingPtr);
  message.set_flex_ctr_base_counter_idx(entry.flexCtrBaseCounterIdx);
  message.set_flex_ctr_offset_mode(entry.flexCtrOffsetMode);
  message.set_flex_ctr_pool_number(entry.flexCtrPoolNumber);
  message.set_int_enable(entry.intEnable);
  message.set_ipmc_l3_iif(entry.ipmcL3Iif);
  message.set_ip_option_profile_index(entry.ipOptionProfileIndex);
  message.set_l3_iif_profile_index(entry.l3IifProfileIndex);
  message.set_vrf(entry.vrf);
}

// A row is its own wire form, so the message is built with its bytes, and read from them.
void Build_Protobuf(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  for (auto _ : state) {
    tolmar_bench::IifEntry message;
    fillMessage(message, entry);
    const std::string bytes = message.SerializeAsString();
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Build_Protobuf);

void Read_Protobuf(benchmark::State& state) {
  tolmar_bench::IifEntry message;
  fillMessage(message, sampleEntry());
  const std::string bytes = message.SerializeAsString();
  for (auto _ : state) {
    tolmar_bench::IifEntry read;
    benchmark::DoNotOptimize(read.ParseFromString(bytes));
    L3IifTH3ConfigEntry entry;
    entry.genId = read.gen_id();
    entry.entryHandle = read.entry_handle();
    entry.valid = read.valid();
    entry.l3Iif = read.l3_iif();
    entry.classId = static_cast<std::uint16_t>(read.class_id());
    entry.ecnDecapMappingPtr = static_cast<std::uint8_t>(read.ecn_decap_mapping_ptr());
    entry.flexCtrBaseCounterIdx = static_cast<std::uint16_t>(read.flex_ctr_base_counter_idx());
    entry.flexCtrOffsetMode = static_cast<std::uint8_t>(read.flex_ctr_offset_mode());
    entry.flexCtrPoolNumber = static_cast<std::uint8_t>(read.flex_ctr_pool_number());
    entry.intEnable = read.int_enable();
    entry.ipmcL3Iif = static_cast<std::uint16_t>(read.ipmc_l3_iif());
    entry.ipOptionProfileIndex = static_cast<std::uint8_t>(read.ip_option_profile_index());
    entry.l3IifProfileIndex = static_cast<std::uint8_t>(read.l3_iif_profile_index());
    entry.vrf = static_cast<std::uint16_t>(read.vrf());
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(Read_Protobuf);

}  // namespace
}  // namespace TolmarHwLib

#endif
