// The property table, from 10 to 10,000 cells.
#include <benchmark/benchmark.h>

#include "core/table.h"

namespace {

using Zavik::Support::rw_table_like;

void fill(rw_table_like& table, std::int64_t cells) {
  for (std::int64_t cell = 0; cell < cells; ++cell) {
    table.setInt64(static_cast<std::uint8_t>(cell / 256), static_cast<std::uint8_t>(cell), cell);
  }
}

void table_set(benchmark::State& state) {
  rw_table_like* table = Zavik::Support::Table__Create();
  fill(*table, state.range(0));
  for (auto _ : state) {
    fill(*table, state.range(0));
  }
  table->release();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void table_get(benchmark::State& state) {
  rw_table_like* table = Zavik::Support::Table__Create();
  fill(*table, state.range(0));
  for (auto _ : state) {
    std::int64_t value = 0;
    for (std::int64_t cell = 0; cell < state.range(0); ++cell) {
      benchmark::DoNotOptimize(
          table->getInt64(static_cast<std::uint8_t>(cell / 256), static_cast<std::uint8_t>(cell), value));
    }
  }
  table->release();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void table_clone(benchmark::State& state) {
  rw_table_like* table = Zavik::Support::Table__Create();
  fill(*table, state.range(0));
  for (auto _ : state) {
    table->clone()->release();
  }
  table->release();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void table_update(benchmark::State& state) {
  rw_table_like* table = Zavik::Support::Table__Create();
  rw_table_like* source = Zavik::Support::Table__Create();
  fill(*source, state.range(0));
  for (auto _ : state) {
    table->update(source);
  }
  table->release();
  source->release();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(table_set)->RangeMultiplier(10)->Range(10, 10'000);
BENCHMARK(table_get)->RangeMultiplier(10)->Range(10, 10'000);
BENCHMARK(table_clone)->RangeMultiplier(10)->Range(10, 10'000);
BENCHMARK(table_update)->RangeMultiplier(10)->Range(10, 10'000);

}  // namespace
