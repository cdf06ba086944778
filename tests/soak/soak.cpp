// Soak: two host threads each blur frames on a handle of their own, in and
// out of place, swapping between two weight maps every frame and re-creating
// the handle every RECREATE frames; every frame must equal the first made
// with its map.
// Afterwards resident memory and the thread count must be back at the
// baseline taken after a warm-up round.
// Usage: dofra_soak FRAMES SECONDS [RECREATE]: stops after FRAMES frames in
// all or SECONDS (0: no limit). Exit status 1 on a failed call, a changed
// frame, or memory or threads left behind.
#include <android/log.h>
#include <malloc.h>
#include <ui/GraphicBuffer.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "dofra_depth.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr long kRssSlackKb = 4096;  // pages the allocator keeps after trimming

constexpr DofraParams kStreams[] = {{640, 480, 80, 60, 5, 0, 4, 5}, {320, 240, 40, 30, 5, 0, 2, 5}};

struct Run {
  long frames_left;
  int recreate;
  Clock::time_point deadline = Clock::time_point::max();
  std::atomic<long> frames{0}, handles{0};
  std::atomic<bool> failed{false};
  bool Going() const { return !failed && frames < frames_left && Clock::now() < deadline; }
  void Fail(const char* what) { fprintf(stderr, "soak: %s\n", what), failed = true; }
};

void Blur(DofraParams s, Run* run) {
  const size_t pixels = static_cast<size_t>(s.width) * s.height;
  std::vector<uint16_t> maps[2] = {std::vector<uint16_t>(pixels), std::vector<uint16_t>(pixels)};
  for (size_t i = 0; i < pixels; ++i) maps[0][i] = i % 1025, maps[1][i] = 1024 - i * 7 % 1025;
  android::GraphicBuffer src(s.width, s.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33),
      dst(s.width, s.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  for (size_t i = 0; i < src.hostSize(); ++i) src.hostData()[i] = static_cast<uint8_t>(i * 13 / 7);
  std::vector<uint8_t> first[2];
  DofraHandle* handle = nullptr;
  for (long n = 0; run->Going(); ++n, ++run->frames) {
    if (n % run->recreate == 0) {
      if (handle != nullptr && DofraDeinit(handle) != 0) run->Fail("DofraDeinit failed");
      if (DofraInit(&handle, &s) != 0) return run->Fail("DofraInit failed");
      ++run->handles;
    }
    DofraWeightMapInfo info{{0, 0, 0}, maps[n % 2].data()};
    memcpy(dst.hostData(), src.hostData(), dst.hostSize());  // every third frame in place
    if (DofraCreateWeightMap(handle, &info) || DofraBlurImage(handle, n % 3 ? &src : &dst, &dst))
      run->Fail("a frame failed");
    std::vector<uint8_t>& expected = first[n % 2];
    if (expected.empty()) expected.assign(dst.hostData(), dst.hostData() + dst.hostSize());
    if (memcmp(expected.data(), dst.hostData(), expected.size()) != 0) run->Fail("frame changed");
  }
  if (handle != nullptr && DofraDeinit(handle) != 0) run->Fail("DofraDeinit failed");
}

// A figure of /proc/self/status: "VmRSS" (resident KB) or "Threads". The
// allocator first returns what it can: memory that free() keeps in its pools
// is not a leak.
long Status(const std::string& name) {
  malloc_trim(0);
  std::ifstream status("/proc/self/status");
  for (std::string key; status >> key;)
    if (key == name + ":" && status >> key) return std::stol(key);
  return -1;
}

void RunStreams(Run* run) {
  std::thread a(Blur, kStreams[0], run), b(Blur, kStreams[1], run);
  a.join(), b.join();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return fprintf(stderr, "usage: dofra_soak FRAMES SECONDS [RECREATE]\n"), 2;
  host_log_set_sink([](int, const char*, const char*, void*) {}, nullptr);
  const int recreate = argc > 3 ? atoi(argv[3]) : 2000;
  Run warm_up{2L * recreate, recreate};
  RunStreams(&warm_up);
  const long rss0 = Status("VmRSS");
  const long threads0 = Status("Threads");

  Run run{atol(argv[1]), recreate};
  const auto start = Clock::now();
  if (atol(argv[2]) > 0) run.deadline = start + std::chrono::seconds(atol(argv[2]));
  RunStreams(&run);
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const long rss = Status("VmRSS");
  const long threads = Status("Threads");
  printf("soak: %ld frames, %ld handles in %.1f s; resident %ld KB before, %ld KB after; ",
         run.frames.load(), run.handles.load(), seconds, rss0, rss);
  printf("threads %ld before, %ld after\n", threads0, threads);
  const bool flat = rss <= rss0 + kRssSlackKb && threads == threads0;
  return run.failed || !flat ? 1 : 0;
}
