// The record of RowBenchmark.cpp as a flatbuffer; nothing where flatbuffers are not installed.
#if __has_include("iif_entry_generated.h")

#include <benchmark/benchmark.h>

#include "benchmarks/rows/PackedEntry.h"
#include "iif_entry_generated.h"

namespace TolmarHwLib {
namespace {

void fillTable(flatbuffers::FlatBufferBuilder& builder, const L3IifTH3ConfigEntry& entry) {
  builder.Finish(tolmar_bench::fb::CreateIifEntry(
      builder, entry.genId, entry.entryHandle, entry.valid, entry.l3Iif, entry.classId,
      entry.ecnDecapMappingPtr, entry.flexCtrBaseCounterIdx, entry.flexCtrOffsetMode, entry.flexCtrPoolNumber,
      entry.intEnable, entry.ipmcL3Iif, entry.ipOptionProfileIndex, entry.l3IifProfileIndex, entry.vrf));
}

void Build_Flatbuffer(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  for (auto _ : state) {
    flatbuffers::FlatBufferBuilder builder(128);
    fillTable(builder, entry);
    benchmark::DoNotOptimize(builder.GetBufferPointer());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Build_Flatbuffer);

void Read_Flatbuffer(benchmark::State& state) {
  flatbuffers::FlatBufferBuilder builder(128);
  fillTable(builder, sampleEntry());
  const void* bytes = builder.GetBufferPointer();
  for (auto _ : state) {
    benchmark::DoNotOptimize(bytes);
    const auto* const read = flatbuffers::GetRoot<tolmar_bench::fb::IifEntry>(bytes);
    L3IifTH3ConfigEntry entry;
    entry.genId = read->gen_id();
    entry.entryHandle = read->entry_handle();
    entry.valid = read->valid();
    entry.l3Iif = read->l3_iif();
    entry.classId = read->class_id();
    entry.ecnDecapMappingPtr = read->ecn_decap_mapping_ptr();
    entry.flexCtrBaseCounterIdx = read->flex_ctr_base_counter_idx();
    entry.flexCtrOffsetMode = read->flex_ctr_offset_mode();
    entry.flexCtrPoolNumber = read->flex_ctr_pool_number();
    entry.intEnable = read->int_enable();
    entry.ipmcL3Iif = read->ipmc_l3_iif();
    entry.ipOptionProfileIndex = read->ip_option_profile_index();
    entry.l3IifProfileIndex = read->l3_iif_profile_index();
    entry.vrf = read->vrf();
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(Read_Flatbuffer);

}  // namespace
}  // namespace TolmarHwLib

#endif
