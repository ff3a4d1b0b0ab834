// Fuzz target: every resampling kernel on fuzzed extents and samples. Extents
// stay small (at most 256 per axis; 96 for the bicubic kernels, which cost
// sixteen taps per output; 3 planes) so that a run stays fast, and
// include the out-of-domain values each kernel must refuse with status 32.
// Sources are exact-size heap blocks; destinations sit between guard zones.
//
// Input layout:
//   u8 kernel   which kernel (modulo the kernel count)
//   u8 fail_at  the k-th allocation of the call fails (0: none)
//   extents and options, as each case below reads them
//   the rest: sample bytes, repeated as needed to fill every source
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "ej_cmc_resample.h"
#include "fuzz_input.h"
#include "fuzz_support.h"
#include "guarded_buffer.h"

namespace {

using ejfuzz::FuzzInput;
using ejfuzz::Guarded;
using ejfuzz::Source;

constexpr uint32_t kMaxExtent = 256;
constexpr uint32_t kMaxBicubicExtent = 96;

uint32_t extent(FuzzInput &in) { return in.in_range(0, kMaxExtent); }
uint16_t bicubic_extent(FuzzInput &in) { return uint16_t(in.in_range(0, kMaxBicubicExtent)); }
// Signed extents reach a little below zero as well.
int32_t signed_extent(FuzzInput &in) { return static_cast<int32_t>(in.in_range(0, kMaxExtent + 2)) - 2; }
size_t count(int64_t w, int64_t h) { return w > 0 && h > 0 ? size_t(w) * size_t(h) : 0; }

void check_status(uint32_t status, bool may_allocate)
{
    EJ_FUZZ_CHECK(status == 0 || status == 32 || (may_allocate && status == 4));
}

// Planes for the plane-set kernels: sources, guarded destinations and the
// pointer arrays the kernels take.
template <typename S, typename D>
struct PlaneSet {
    PlaneSet(uint16_t planes, size_t src_n, size_t dst_n, FuzzInput &in)
    {
        for (uint16_t p = 0; p < planes; ++p) {
            src.push_back(std::make_unique<Source<S>>(src_n, in));
            dst.push_back(std::make_unique<Guarded<D>>(dst_n));
            src_ptr.push_back(src.back()->data());
            dst_ptr.push_back(dst.back()->data());
        }
        src_ptr.push_back(nullptr); // never empty, so data() is never null
        dst_ptr.push_back(nullptr);
    }
    void check(uint32_t status) const
    {
        for (const auto &d : dst)
            d->check(status);
    }
    std::vector<std::unique_ptr<Source<S>>> src;
    std::vector<std::unique_ptr<Guarded<D>>> dst;
    std::vector<const S *> src_ptr;
    std::vector<D *> dst_ptr;
};

template <typename S>
void bicubic_upscale(FuzzInput &in,
                     uint32_t (*kernel)(const S *const *, float *const *, uint16_t, uint16_t,
                                        uint16_t, uint16_t, uint16_t))
{
    const uint16_t sw = bicubic_extent(in), sh = bicubic_extent(in);
    const uint16_t dw = bicubic_extent(in), dh = bicubic_extent(in);
    const uint16_t planes = uint16_t(in.in_range(0, 3));
    PlaneSet<S, float> set(planes, count(sw, sh), count(dw, dh), in);
    const uint32_t status =
        kernel(set.src_ptr.data(), set.dst_ptr.data(), sw, sh, dw, dh, planes);
    check_status(status, true);
    set.check(status);
}

template <typename S>
uint32_t bicubic_resize(FuzzInput &in, bool u16)
{
    const uint16_t sh = bicubic_extent(in), sw = bicubic_extent(in);
    const uint16_t dh = bicubic_extent(in), dw = bicubic_extent(in);
    const uint16_t frac = in.u8();
    Source<S> src(count(sw, sh), in);
    Guarded<uint16_t> dst(count(dw, dh));
    uint32_t status;
    if (u16)
        status = bicubic_resize_u16_to_u16(reinterpret_cast<const uint16_t *>(src.data()), sh,
                                           sw, frac, dst.data(), dh, dw);
    else
        status = bicubic_resize_32f_to_u16p10(reinterpret_cast<const float *>(src.data()), sh,
                                              sw, dst.data(), dh, dw);
    check_status(status, true);
    dst.check(status);
    return status;
}

// The bilinear resizers: dense, or strided (_v1) when step is non-zero.
template <typename T>
void bilinear(FuzzInput &in, uint32_t (*dense)(const T *, int32_t, int32_t, T *, int32_t, int32_t),
              uint32_t (*strided)(const T *, int32_t, int32_t, T *, int32_t, int32_t, int32_t))
{
    const int32_t sw = signed_extent(in), sh = signed_extent(in);
    const int32_t dw = signed_extent(in), dh = signed_extent(in);
    const int32_t step = strided != nullptr ? static_cast<int32_t>(in.in_range(0, 6)) - 1 : 1;
    const size_t outputs = count(dw, dh);
    const size_t span = outputs == 0 || step < 1 ? 0 : (outputs - 1) * size_t(step) + 1;
    Source<T> src(count(sw, sh), in);
    Guarded<T> dst(span);
    const uint32_t status = strided != nullptr
                                ? strided(src.data(), sw, sh, dst.data(), dw, dh, step)
                                : dense(src.data(), sw, sh, dst.data(), dw, dh);
    check_status(status, false);
    dst.check(status);
}

void nearest_interleaved(FuzzInput &in)
{
    const uint32_t sw = extent(in), sh = extent(in), dw = extent(in), dh = extent(in);
    const uint32_t channels = in.in_range(0, 4);
    Source<int32_t> src(count(sw, sh) * channels, in);
    Guarded<int32_t> dst(count(dw, dh) * channels);
    const uint32_t status =
        image_nearest_neighbor_scale_interleaved_int32(src.data(), sw, sh, channels, dst.data(), dw, dh);
    check_status(status, false);
    dst.check(status);
}

void nearest_uint32(FuzzInput &in)
{
    const int32_t sw = signed_extent(in), sh = signed_extent(in);
    const int32_t dw = signed_extent(in), dh = signed_extent(in);
    Source<uint32_t> src(count(sw, sh), in);
    Guarded<uint32_t> dst(count(dw, dh));
    const uint32_t status = image_nearest_neighbor_scale_uint32(src.data(), sw, sh, dst.data(), dw, dh);
    check_status(status, false);
    dst.check(status);
}

template <typename T>
void nearest_ratio(FuzzInput &in, bool downscale)
{
    const uint16_t sw = uint16_t(extent(in)), sh = uint16_t(extent(in));
    const uint16_t dw = uint16_t(extent(in)), dh = uint16_t(extent(in));
    const uint8_t use_max = in.u8() & 1;
    Source<T> src(count(sw, sh), in);
    Guarded<T> dst(count(dw, dh));
    uint32_t status;
    if (downscale)
        status = image_downscale_nearest_neighbor_int32(
            reinterpret_cast<const int32_t *>(src.data()), reinterpret_cast<int32_t *>(dst.data()),
            sw, sh, dw, dh, use_max);
    else
        status = image_upscale_nearest_neighbor_uint16(
            reinterpret_cast<const uint16_t *>(src.data()), reinterpret_cast<uint16_t *>(dst.data()),
            sw, sh, dw, dh);
    check_status(status, false);
    dst.check(status);
}

void resize_float(FuzzInput &in)
{
    const uint16_t sw = uint16_t(extent(in));
    const int32_t sh = signed_extent(in);
    const uint16_t dw = uint16_t(extent(in));
    const int32_t dh = signed_extent(in);
    Source<float> src(count(sw, sh), in);
    Guarded<float> dst(count(dw, dh));
    const uint32_t status = resize_2d_array_float(src.data(), sw, sh, dst.data(), dw, dh);
    check_status(status, false);
    dst.check(status);
}

void crop_resize(FuzzInput &in)
{
    const uint32_t sw = extent(in), sh = extent(in), dw = extent(in), dh = extent(in);
    auto margin = [&in] { return static_cast<int32_t>(in.in_range(0, kMaxExtent + 4)) - 4; };
    const resize_crop_pair tl{margin(), margin()};
    const resize_crop_pair br{margin(), margin()};
    Source<uint16_t> src(count(sw, sh), in);
    Guarded<uint16_t> dst(count(dw, dh));
    const uint32_t status = crop_resize_2d_array_uint16(src.data(), sw, sh, tl, br, dst.data(), dw, dh);
    check_status(status, false);
    dst.check(status);
}

template <typename S>
void area_downscale(FuzzInput &in)
{
    const uint16_t sw = uint16_t(extent(in)), sh = uint16_t(extent(in));
    const uint16_t dw = uint16_t(extent(in)), dh = uint16_t(extent(in));
    const uint16_t planes = uint16_t(in.in_range(0, 3));
    const bool with_roi = (in.u8() & 1) != 0;
    uint16_t roi[4];
    for (uint16_t &v : roi)
        v = uint16_t(in.in_range(0, kMaxExtent + 4));
    const int32_t in_frac = static_cast<int32_t>(in.u8()) - 8;
    const int32_t out_frac = static_cast<int32_t>(in.u8()) - 8;
    PlaneSet<S, uint16_t> set(planes, count(sw, sh), count(dw, dh), in);
    uint32_t status;
    if constexpr (sizeof(S) == 4)
        status = image_downscale_32f_to_u16p10(set.src_ptr.data(), set.dst_ptr.data(), sw, sh, dw,
                                               dh, planes, with_roi ? roi : nullptr);
    else
        status = image_downscale_u16_to_u16(set.src_ptr.data(), set.dst_ptr.data(), sw, sh,
                                            in_frac, dw, dh, out_frac, planes,
                                            with_roi ? roi : nullptr);
    check_status(status, false);
    set.check(status);
}

constexpr unsigned kKernels = 18;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    FuzzInput in(data, size);
    const unsigned kernel = in.u8() % kKernels;
    const uint8_t fail_at = in.u8();
    ejfuzz::FailAllocation fail(fail_at);
    switch (kernel) {
    case 0: bicubic_upscale<uint8_t>(in, image_bicubic_upscale_uint8_to_float); break;
    case 1: bicubic_upscale<uint16_t>(in, image_bicubic_upscale_uint16_to_float); break;
    case 2: bicubic_resize<float>(in, false); break;
    case 3: bicubic_resize<uint16_t>(in, true); break;
    case 4: nearest_interleaved(in); break;
    case 5: nearest_uint32(in); break;
    case 6: nearest_ratio<uint16_t>(in, false); break;
    case 7: nearest_ratio<int32_t>(in, true); break;
    case 8: bilinear<uint8_t>(in, resize_2d_array_uint8, nullptr); break;
    case 9: bilinear<uint8_t>(in, nullptr, resize_2d_array_uint8_v1); break;
    case 10: bilinear<uint16_t>(in, resize_2d_array_uint16, nullptr); break;
    case 11: bilinear<uint16_t>(in, nullptr, resize_2d_array_uint16_v1); break;
    case 12: bilinear<int32_t>(in, resize_2d_array_int32, nullptr); break;
    case 13: bilinear<uint32_t>(in, resize_2d_array_uint32, nullptr); break;
    case 14: resize_float(in); break;
    case 15: crop_resize(in); break;
    case 16: area_downscale<float>(in); break;
    default: area_downscale<uint16_t>(in); break;
    }
    return 0;
}
