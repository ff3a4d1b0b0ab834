// Allocations of every resampling kernel: the bicubic kernels' scratch
// allocations each made to fail in turn (status 4, nothing written, nothing
// leaked), and every other kernel allocating nothing at all.
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <vector>

#include "ej_cmc_resample.h"
#include "failure_injection.h"

using ejtest::FailureInjection;

namespace {

constexpr uint16_t kPattern = 0xA5A5;

// One in-domain call; it writes into dst, which holds at least 16 x 16
// elements of 32 bits.
struct KernelCall {
    const char *name;
    bool allocates;
    std::function<uint32_t(uint32_t *dst)> call;
};
void PrintTo(const KernelCall &k, std::ostream *os) { *os << k.name; }

std::vector<KernelCall> kernel_calls()
{
    static const std::vector<uint8_t> u8(64, 7);
    static const std::vector<uint16_t> u16(64, 300);
    static const std::vector<int32_t> i32(64, -5);
    static const std::vector<uint32_t> u32(64, 9);
    static const std::vector<float> f(64, 1.5f);
    auto u16p = [](uint32_t *d) { return reinterpret_cast<uint16_t *>(d); };
    auto i32p = [](uint32_t *d) { return reinterpret_cast<int32_t *>(d); };
    auto fp = [](uint32_t *d) { return reinterpret_cast<float *>(d); };
    return {
        {"bicubic_u8_to_float", true, [=](uint32_t *d) {
             const uint8_t *s[1] = {u8.data()};
             float *o[1] = {fp(d)};
             return image_bicubic_upscale_uint8_to_float(s, o, 8, 8, 12, 10, 1);
         }},
        {"bicubic_u16_to_float", true, [=](uint32_t *d) {
             const uint16_t *s[1] = {u16.data()};
             float *o[1] = {fp(d)};
             return image_bicubic_upscale_uint16_to_float(s, o, 8, 8, 12, 10, 1);
         }},
        {"bicubic_32f_to_u16p10", true,
         [=](uint32_t *d) { return bicubic_resize_32f_to_u16p10(f.data(), 8, 8, u16p(d), 5, 11); }},
        {"bicubic_u16_to_u16", true,
         [=](uint32_t *d) { return bicubic_resize_u16_to_u16(u16.data(), 8, 8, 10, u16p(d), 11, 5); }},
        {"nearest_interleaved", false, [=](uint32_t *d) {
             return image_nearest_neighbor_scale_interleaved_int32(i32.data(), 4, 8, 2, i32p(d), 9, 5);
         }},
        {"nearest_uint32", false,
         [=](uint32_t *d) { return image_nearest_neighbor_scale_uint32(u32.data(), 8, 8, d, 11, 3); }},
        {"nearest_upscale_u16", false,
         [=](uint32_t *d) { return image_upscale_nearest_neighbor_uint16(u16.data(), u16p(d), 8, 8, 13, 4); }},
        {"nearest_downscale_i32", false, [=](uint32_t *d) {
             return image_downscale_nearest_neighbor_int32(i32.data(), i32p(d), 8, 8, 3, 5, 1);
         }},
        {"resize_u8", false, [=](uint32_t *d) {
             return resize_2d_array_uint8(u8.data(), 8, 8, reinterpret_cast<uint8_t *>(d), 12, 7);
         }},
        {"resize_u8_v1", false, [=](uint32_t *d) {
             return resize_2d_array_uint8_v1(u8.data(), 8, 8, reinterpret_cast<uint8_t *>(d), 12, 7, 3);
         }},
        {"resize_u16", false,
         [=](uint32_t *d) { return resize_2d_array_uint16(u16.data(), 8, 8, u16p(d), 12, 7); }},
        {"resize_u16_v1", false,
         [=](uint32_t *d) { return resize_2d_array_uint16_v1(u16.data(), 8, 8, u16p(d), 5, 7, 2); }},
        {"resize_i32", false,
         [=](uint32_t *d) { return resize_2d_array_int32(i32.data(), 8, 8, i32p(d), 12, 7); }},
        {"resize_u32", false,
         [=](uint32_t *d) { return resize_2d_array_uint32(u32.data(), 8, 8, d, 12, 7); }},
        {"resize_float", false,
         [=](uint32_t *d) { return resize_2d_array_float(f.data(), 8, 8, fp(d), 12, 7); }},
        {"crop_resize_u16", false, [=](uint32_t *d) {
             return crop_resize_2d_array_uint16(u16.data(), 8, 8, {1, 2}, {2, 1}, u16p(d), 9, 9);
         }},
        {"area_32f_to_u16p10", false, [=](uint32_t *d) {
             const float *s[1] = {f.data()};
             uint16_t *o[1] = {u16p(d)};
             return image_downscale_32f_to_u16p10(s, o, 8, 8, 3, 4, 1, nullptr);
         }},
        {"area_u16_to_u16", false, [=](uint32_t *d) {
             const uint16_t *s[1] = {u16.data()};
             uint16_t *o[1] = {u16p(d)};
             const uint16_t roi[4] = {1, 1, 6, 7};
             return image_downscale_u16_to_u16(s, o, 8, 8, 10, 3, 4, 10, 1, roi);
         }},
    };
}

bool untouched(const std::vector<uint32_t> &dst)
{
    for (uint32_t v : dst)
        if (v != (uint32_t(kPattern) << 16 | kPattern))
            return false;
    return true;
}

class KernelAllocations : public ::testing::TestWithParam<KernelCall> {};

} // namespace

TEST_P(KernelAllocations, EveryScratchAllocationFailsCleanly)
{
    const KernelCall &kernel = GetParam();
    std::vector<uint32_t> dst(256, uint32_t(kPattern) << 16 | kPattern);
    uint64_t allocations;
    {
        FailureInjection none(0);
        ASSERT_EQ(kernel.call(dst.data()), 0u);
        allocations = cmc_alloc_count();
    }
    EXPECT_FALSE(untouched(dst));
    EXPECT_EQ(allocations > 0, kernel.allocates) << allocations;
    for (uint64_t k = 1; k <= allocations; ++k) {
        std::fill(dst.begin(), dst.end(), uint32_t(kPattern) << 16 | kPattern);
        FailureInjection fail(k);
        EXPECT_EQ(kernel.call(dst.data()), 4u) << k;
        EXPECT_TRUE(untouched(dst)) << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Resample, KernelAllocations, ::testing::ValuesIn(kernel_calls()),
                         [](const auto &info) { return std::string(info.param.name); });
