// What it costs that an image is on the disk before it has its name. Run it in a folder of the disk in
// question.
#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <cstdio>
#include <filesystem>

#include "host/outputs/image_files.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint16_t kWidth = 1280;
constexpr std::uint16_t kHeight = 1024;
constexpr int kImagesASecond = 30;  // how many names are put on the disk together

// A folder below the current one, and away with it.
struct bench_folder {
  bench_folder() { fs::create_directory(path); }
  ~bench_folder() { fs::remove_all(path); }
  fs::path path = fs::absolute("recording_bench.tmp");
};

host::stored_frame frame() {
  host::stored_frame one;
  one.info = {
      .timestampUs = 7, .exposureUs = 5000, .gainDb = 6, .width = kWidth, .height = kHeight, .format = 1};
  one.pixels.assign(std::size_t{kWidth} * kHeight, 77);
  return one;
}

void recorded_image(benchmark::State& state) {
  const bench_folder folder;
  const auto one = frame();
  host::image_files files(folder.path / "camera", host::image_format::raw, {});
  int images = 0;
  for (auto _ : state) {
    files.write(one, {});
    if (++images % kImagesASecond == 0) {
      files.settle();
    }
  }
}

// The same bytes under a hidden name, renamed, with nothing put on the disk.
void unsafe_image(benchmark::State& state) {
  const bench_folder folder;
  const auto one = frame();
  const fs::path partial = folder.path / "part";
  int images = 0;
  for (auto _ : state) {
    const host::descriptor file(open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    const bool isWritten = host::write_all(file.get(), one.pixels.data(), one.pixels.size());
    fs::rename(partial, folder.path / std::to_string(++images));
    benchmark::DoNotOptimize(isWritten);
  }
}

BENCHMARK(recorded_image)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(unsafe_image)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
