#include "blur/blur_context.h"

#include <cstdlib>
#include <cstring>

#include "api/clock.h"
#include "api/log.h"
#include "blur/dispatch.h"
#include "blur/frame_check.h"
#include "blur/no_bleed.h"
#include "dofra_depth.h"
#include "pool/thread_pool.h"

// The band pipeline runs the layer's tables and the pool's batch calls.
using namespace dofra;

namespace {

// Fixed lines of the log, with the names they log under.
constexpr const char* kInitName = "blur_init";
constexpr int kLineRefused = 40;
constexpr int kLineContextAlloc = 36;
constexpr int kLineKernelWeights = 43;
// Buffer allocation failures, in allocation order.
constexpr int kLineSrcCopy = 47;
constexpr int kLineXInterp = 54;
constexpr int kLineScaleImg = 61;
constexpr int kLineInputY = 68;
constexpr int kLineInputUV = 75;
constexpr int kLineTempimY = 82;
constexpr int kLineTempimUV = 89;
constexpr int kLineSmoothImg = 100;

constexpr int kWeightUnit = 1024;                // kernel weights are 1/k in Q10
constexpr int kIntegralBytes = 4;                // one 32-bit integral entry
constexpr int kIntegralBands = 2;                // scratch slices, fixed: band_count stays 2
constexpr int64_t kWakeWorkersLuma = 256 * 256;  // smallest frame worth a hand-off

// Buffer sizes are formed in 32-bit arithmetic (wrapping, never undefined);
// frames that would overflow are refused before any allocation.
int32_t Mul32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
int32_t Add32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
// 4:2:0 frame size: the whole product is formed, then halved.
int32_t ThreeHalves(int32_t a, int32_t b) { return Mul32(Mul32(a, b), 3) / 2; }

// Offsets into buffers that may exceed 32 bits in their products.
inline uint8_t* At(uint8_t* base, int64_t a, int64_t b) { return base + a * b; }

struct BufferSpec {
  uint8_t** field;
  int32_t size;
  int line;
  const char* message;
};

}  // namespace

int blur_init(DofraParams* params, DofraHandle* handle) {
  const int32_t W = handle->width;
  const int32_t H = handle->height;
  const int32_t k = params->blur_kernel_size;
  const int32_t s = params->scale_factor;
  if (const char* reason = blur_frame_refusal(W, H, s, k)) {
    DOFRA_LOG(kLineRefused, kInitName, "refusing %dx%d at scale %d: %s\n", W, H, s, reason);
    return 1;
  }

  BlurContext* ctx = static_cast<BlurContext*>(calloc(1, sizeof(BlurContext)));
  handle->blur = ctx;
  if (ctx == nullptr) {
    DOFRA_LOG(kLineContextAlloc, kInitName, "BlurContext malloc error\n");
    return 1;
  }
  ctx->kernel_size = k;
  ctx->scale_factor = s;
  const int32_t sw = W / s;
  const int32_t sh = H / s;
  ctx->small_width = sw;
  ctx->small_height = sh;

  ctx->kernel_weights = static_cast<uint16_t*>(calloc(k, sizeof(uint16_t)));
  if (ctx->kernel_weights == nullptr) {
    DOFRA_LOG(kLineKernelWeights, kInitName, "kernel_weights malloc error\n");
    return 1;
  }
  for (int32_t i = 0; i < k; ++i) {
    ctx->kernel_weights[i] = static_cast<uint16_t>(static_cast<uint32_t>(kWeightUnit) / k);
  }

  const int32_t r = k / 2;
  const int32_t pad_w_y = sw + 2 * r;
  const int32_t pad_w_uv = sw + 4 * r;  // r interleaved pairs of border per side
  const BufferSpec buffers[] = {
      {&ctx->Src_copy, ThreeHalves(W, H), kLineSrcCopy, "Src_copy malloc error\n"},
      {&ctx->XInterp_image, ThreeHalves(H, sw), kLineXInterp, "XInterp_image malloc error\n"},
      {&ctx->scale_img, ThreeHalves(sw, sh), kLineScaleImg, "scale_img malloc error\n"},
      {&ctx->input_tmp_y, Mul32(pad_w_y, sh + 2 * r), kLineInputY, "input_tmp_y malloc error\n"},
      {&ctx->input_tmp_uv, Mul32(pad_w_uv, sh / 2 + 2 * r), kLineInputUV,
       "input_tmp_uv malloc error\n"},
      {&ctx->tempim_y, Mul32(Mul32(pad_w_y, sh + 2 * r + 1), kIntegralBytes * kIntegralBands),
       kLineTempimY, "tempim_y malloc error\n"},
      {&ctx->tempim_uv, Mul32(Mul32(pad_w_uv, sh / 2 + 2 * r + 1), kIntegralBytes * kIntegralBands),
       kLineTempimUV, "tempim_uv malloc error\n"},
      {&ctx->smooth_img, ThreeHalves(sw, sh), kLineSmoothImg, "smooth_img malloc error\n"},
  };

  int32_t total = 0;
  for (const BufferSpec& b : buffers) {
    *b.field = static_cast<uint8_t*>(malloc(static_cast<size_t>(b.size)));
    if (*b.field == nullptr) {
      // The partly filled context stays attached for blur_deinit.
      DOFRA_LOG(b.line, kInitName, "%s", b.message);
      return 1;
    }
    total = Add32(total, b.size);
  }
  handle->buffer_total = Add32(handle->buffer_total, total);
  return 0;
}

int blur_deinit(DofraHandle* handle) {
  BlurContext* ctx = handle->blur;
  if (ctx == nullptr) return 0;  // blur_init refused or never ran
  void* const owned[] = {ctx->kernel_weights, ctx->Src_copy,    ctx->XInterp_image,
                         ctx->scale_img,      ctx->input_tmp_y, ctx->input_tmp_uv,
                         ctx->tempim_y,       ctx->tempim_uv,   ctx->smooth_img};
  for (void* p : owned) {
    if (p != nullptr) free(p);
  }
  free(ctx);
  return 0;
}

namespace {

// A band smooths one small row beyond its own rows / s on each side: the rows
// the enlargement interpolates from.
void SetBandRows(BandTask* t, int32_t band, int32_t rows, int32_t s, int32_t small_h) {
  t->band_index = band;
  t->first_row = band * rows;
  t->last_row = t->first_row + rows - 1;
  const int32_t q = t->first_row / s;
  t->small_first_row = q < 2 ? 0 : q - 1;
  const int32_t below = t->last_row / s + 1;
  t->small_last_row = below < small_h - 1 ? below : small_h - 1;
}

void FillCommon(BandTask* t, const DofraHandle* handle, const BlurContext* ctx,
                uint16_t* weight_map, uint8_t* smoothed_plane) {
  t->pool = handle->pool;
  t->width = handle->width;
  t->scale_factor = ctx->scale_factor;
  t->small_width = ctx->small_width;
  t->kernel_size = ctx->kernel_size;
  t->kernel_weights = ctx->kernel_weights;
  t->weight_map = weight_map;
  t->smoothed_plane = smoothed_plane;
  t->no_bleed = nullptr;
}

// The no-glow blur smooths each band into a plane of its own: its rows are
// smoothed twice, and a neighbour's first pass must never land on rows this
// band has already finished.
void UseNoBleed(BandTask* t, const BlurContext* ctx, int plane, int band) {
  const NoBleedState* nb = ctx->no_bleed;
  if (nb == nullptr || !nb->enabled || band >= kNoBleedTasks / 2) return;
  const int task = plane * kNoBleedTasks / 2 + band;
  t->no_bleed = &nb->tasks[task];
  t->smoothed_plane = nb->tasks[task].smoothed;
}

// A band is processed in strips of output rows, small enough that the source
// rows a strip shrinks are still in cache when the same strip composites
// them. Each strip first shrinks and smooths only the small rows that no
// earlier strip of the band did, so the band computes exactly the rows it
// computes in one piece, and every member gives the same bytes on a row
// range as on the whole band.
constexpr int kStripRows = 64;
// The final strip keeps at least the member's bottom rows (at most 8): they
// follow their own rule only in a call that ends at the plane's last row, and
// a strip ending among them would read below the small plane.
constexpr int kMinFinalStrip = 8;

// Shrink the rows the smoothing reads, smooth the rows the enlargement reads,
// then write the strip's own destination rows.
void RunBand(BandTask* t, ShrinkFn shrink, SmoothFn smooth, BlendFn blend) {
  const int r = t->kernel_size / 2;
  const int y0 = t->small_first_row - r < 0 ? 0 : t->small_first_row - r;
  const int y1 =
      t->small_last_row + r < t->small_height - 1 ? t->small_last_row + r : t->small_height - 1;
  int shrunk = y0 - 1;                    // last small row shrunk so far
  int smoothed = t->small_first_row - 1;  // last small row smoothed so far
  for (int first = t->first_row; first <= t->last_row;) {
    const int last = t->last_row - (first + kStripRows - 1) < kMinFinalStrip
                         ? t->last_row
                         : first + kStripRows - 1;
    // Output row q interpolates small rows up to q / s + 1.
    const int below = last / t->scale_factor + 1;
    const int need = last == t->last_row || below > t->small_last_row ? t->small_last_row : below;
    if (need > smoothed) {
      const int shrink_to = need + r < y1 ? need + r : y1;
      if (shrink_to > shrunk) {
        shrink(t->source, t->small_plane, t->shrink_tmp, t->width, t->height, t->small_width,
               t->small_height, shrunk + 1, shrink_to);
        if (t->no_bleed != nullptr) NoBleedMaskRows(*t, shrunk + 1, shrink_to);
        shrunk = shrink_to;
      }
      TimingPoint();
      smooth(t->small_plane, t->padded_input, t->smoothed_plane, t->small_width, t->small_height,
             t->kernel_weights, r, r, t->integral_scratch, smoothed + 1, need);
      if (t->no_bleed != nullptr) NoBleedSmoothRows(*t, smoothed + 1, need);
      smoothed = need;
      TimingPoint();
    }
    blend(t->source, t->width, t->height, t->small_width, t->small_height, t->weight_map,
          t->smoothed_plane, t->destination, first, last);
    TimingPoint();
    first = last + 1;
  }
  one_thread_done(t->pool);
}

}  // namespace

void* Smooth_Y_thread(void* band_task) {
  BandTask* t = static_cast<BandTask*>(band_task);
  const int i = FactorSlot(t->scale_factor);
  const BlurKernelTable& k = ActiveBlurKernels();
  RunBand(t, k.shrink_y[i], k.smooth_y, k.blend_y[i]);
  return nullptr;
}

void* Smooth_UV_thread(void* band_task) {
  BandTask* t = static_cast<BandTask*>(band_task);
  const int i = FactorSlot(t->scale_factor);
  const BlurKernelTable& k = ActiveBlurKernels();
  RunBand(t, k.shrink_uv[i], k.smooth_uv, k.blend_uv[i]);
  return nullptr;
}

void blur_process(DofraHandle* handle, uint8_t* src_y, uint8_t* src_uv, uint8_t* dst_y,
                  uint8_t* dst_uv, uint8_t* smoothed, uint16_t* weight_map) {
  const int32_t N = handle->band_count;
  CThread_pool* pool = handle->pool;
  BandTask* tasks = handle->pThreadArg;
  const int32_t W = handle->width;
  const int32_t H = handle->height;
  BlurContext* ctx = handle->blur;
  uint8_t* smooth_buf = smoothed != nullptr ? smoothed : ctx->smooth_img;

  reset_thread_done(pool);

  // A band reads source rows outside its own range, so an in-place plane is
  // read from a private copy.
  const int64_t luma_bytes = static_cast<int64_t>(W) * H;
  if (src_y == dst_y) {
    memcpy(ctx->Src_copy, src_y, static_cast<size_t>(luma_bytes));
    src_y = ctx->Src_copy;
  }
  if (src_uv == dst_uv) {
    memcpy(ctx->Src_copy + luma_bytes, src_uv, static_cast<size_t>(luma_bytes / 2));
    src_uv = ctx->Src_copy + luma_bytes;
  }

  const int32_t s = ctx->scale_factor;
  const int32_t sw = ctx->small_width;
  const int32_t sh = ctx->small_height;
  const int32_t r = ctx->kernel_size / 2;
  if (N > 0) {
    const int32_t rows = H / N;
    const int64_t slice = static_cast<int64_t>(sw + 2 * r) * (sh + 2 * r + 1) * kIntegralBytes;
    for (int32_t b = 0; b < N; ++b) {
      BandTask* t = &tasks[b];
      FillCommon(t, handle, ctx, weight_map, smooth_buf);
      SetBandRows(t, b, rows, s, sh);
      t->height = H;
      t->small_height = sh;
      t->source = src_y;
      t->destination = dst_y;
      t->small_plane = ctx->scale_img;
      t->shrink_tmp = ctx->XInterp_image;
      t->padded_input = ctx->input_tmp_y;
      t->integral_scratch = At(ctx->tempim_y, b, slice);
      UseNoBleed(t, ctx, 0, b);
      pool_queue_task(pool, Smooth_Y_thread, t);
    }
  }
  if (N > 0) {
    const int32_t rows = (H / 2) / N;
    const int32_t shc = sh / 2;
    const int64_t slice = static_cast<int64_t>(sw + 4 * r) * (shc + 2 * r + 1) * kIntegralBytes;
    const int64_t small_luma = static_cast<int64_t>(sw) * sh;
    for (int32_t b = 0; b < N; ++b) {
      BandTask* t = &tasks[N + b];
      FillCommon(t, handle, ctx, weight_map, smooth_buf + small_luma);
      SetBandRows(t, b, rows, s, shc);
      t->height = H / 2;
      t->small_height = shc;
      t->source = src_uv;
      t->destination = dst_uv;
      t->small_plane = ctx->scale_img + small_luma;
      t->shrink_tmp = At(ctx->XInterp_image, H, sw);
      t->padded_input = ctx->input_tmp_uv;
      t->integral_scratch = At(ctx->tempim_uv, b, slice);
      UseNoBleed(t, ctx, 1, b);
      pool_queue_task(pool, Smooth_UV_thread, t);
    }
  }

  // Waking a sleeping worker is a system call that costs more than the
  // bands of a small frame: the caller then runs them all itself.
  pool_run_queued(pool, luma_bytes >= kWakeWorkersLuma);
  sync_thread_done(pool, 2 * N);
  TimingPoint();
}
