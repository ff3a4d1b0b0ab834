// Every exported resampling kernel on camera extents, each next to the
// matching OpenCV cv::resize (single thread): INTER_NEAREST for the nearest-
// neighbour kernels, INTER_LINEAR for the bilinear family, INTER_CUBIC (plus
// the conversion to u16p10 where this library writes fixed point) for the
// bicubic kernels, INTER_AREA (plus the conversion) for the area downscale.
//
// The _v1 members, which fill one channel of an interleaved destination, are
// measured against cv::resize followed by cv::mixChannels into channel 0.
// OpenCV has no bilinear resize of 32-bit integers; the int32 and uint32
// members are measured against its 32-bit float resize. The block-maximum
// mode of the int32 nearest-neighbour kernel has no counterpart; it is
// measured against INTER_NEAREST, the selection it adds to.
#include <cstdint>
#include <vector>

#include "bench_support.h"
#include "ej_cmc_resample.h"

#if defined(EJ_BENCH_HAVE_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace ejbench;

const Scaling kCamera[] = {{kHd, kUhd}, {kUhd, kHd}, {kUhd, k720}, {kGrid, kHd}};
const Scaling kUpscales[] = {{kGrid, kHd}, {kHd, kUhd}};
const Scaling kReductions[] = {{kUhd, kHd}, {kUhd, k720}};

uint64_t samples(Size s)
{
    return uint64_t(s.w) * s.h;
}

#if defined(EJ_BENCH_HAVE_OPENCV)
// cv::resize of a src-sized matrix of `type` to dst, optionally followed by a
// conversion (convert_type >= 0) with the given scale.
void add_opencv(const std::string &name, const Scaling &sc, int type, int interpolation,
                int convert_type = -1, double convert_scale = 1.0, int planes = 1)
{
    add(name, [=](benchmark::State &state) {
        cv::setNumThreads(1);
        cv::Mat src(int(sc.src.h), int(sc.src.w), type);
        cv::randu(src, 0, 4096);
        cv::Mat dst, converted;
        loop(state, samples(sc.dst) * planes, [&] {
            for (int p = 0; p < planes; ++p) {
                cv::resize(src, dst, cv::Size(int(sc.dst.w), int(sc.dst.h)), 0, 0, interpolation);
                if (convert_type >= 0)
                    dst.convertTo(converted, convert_type, convert_scale);
            }
        });
    });
}

// The _v1 members write one channel of an interleaved destination: OpenCV
// resizes into a plane and moves it into channel 0 of the interleaved image.
void add_opencv_into_channel(const std::string &name, const Scaling &sc, int type, int channels)
{
    add(name, [=](benchmark::State &state) {
        cv::setNumThreads(1);
        cv::Mat src(int(sc.src.h), int(sc.src.w), type);
        cv::randu(src, 0, 4096);
        cv::Mat plane;
        cv::Mat interleaved(int(sc.dst.h), int(sc.dst.w), CV_MAKETYPE(CV_MAT_DEPTH(type), channels),
                            cv::Scalar::all(0));
        const int from_to[] = {0, 0};
        loop(state, samples(sc.dst), [&] {
            cv::resize(src, plane, cv::Size(int(sc.dst.w), int(sc.dst.h)), 0, 0, cv::INTER_LINEAR);
            cv::mixChannels(&plane, 1, &interleaved, 1, from_to, 1);
        });
    });
}
#define EJ_OPENCV(...) add_opencv(__VA_ARGS__)
#define EJ_OPENCV_INTO_CHANNEL(...) add_opencv_into_channel(__VA_ARGS__)
#else
#define EJ_OPENCV(...) (void)0
#define EJ_OPENCV_INTO_CHANNEL(...) (void)0
#endif

// --- Nearest neighbour.

void register_nearest()
{
    for (const Scaling &sc : kCamera) {
        const std::string n = scaling_name(sc);
        add("nearest/uint32_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<uint32_t>(sc.src, 4095);
            std::vector<uint32_t> dst(samples(sc.dst));
            loop(state, samples(sc.dst), [&] {
                image_nearest_neighbor_scale_uint32(src.data(), int32_t(sc.src.w), int32_t(sc.src.h),
                                                    dst.data(), int32_t(sc.dst.w), int32_t(sc.dst.h));
            });
        });
        EJ_OPENCV("nearest/uint32_" + n + "/opencv", sc, CV_32SC1, cv::INTER_NEAREST);

        add("nearest/interleaved_int32x3_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<int32_t>({sc.src.w * 3, sc.src.h}, 4095);
            std::vector<int32_t> dst(samples(sc.dst) * 3);
            loop(state, samples(sc.dst), [&] {
                image_nearest_neighbor_scale_interleaved_int32(src.data(), sc.src.w, sc.src.h, 3,
                                                               dst.data(), sc.dst.w, sc.dst.h);
            });
        });
        EJ_OPENCV("nearest/interleaved_int32x3_" + n + "/opencv", sc, CV_32SC3, cv::INTER_NEAREST);

        add("nearest/uint16_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<uint16_t>(sc.src, 4095);
            std::vector<uint16_t> dst(samples(sc.dst));
            loop(state, samples(sc.dst), [&] {
                image_upscale_nearest_neighbor_uint16(src.data(), dst.data(), uint16_t(sc.src.w),
                                                      uint16_t(sc.src.h), uint16_t(sc.dst.w),
                                                      uint16_t(sc.dst.h));
            });
        });
        EJ_OPENCV("nearest/uint16_" + n + "/opencv", sc, CV_16UC1, cv::INTER_NEAREST);

        for (uint8_t use_max : {0, 1}) {
            const std::string kernel = use_max ? "int32_blockmax_" : "int32_";
            add("nearest/" + kernel + n + "/ej", [sc, use_max](benchmark::State &state) {
                const auto src = plane<int32_t>(sc.src, 4095);
                std::vector<int32_t> dst(samples(sc.dst));
                loop(state, samples(sc.dst), [&] {
                    image_downscale_nearest_neighbor_int32(src.data(), dst.data(), uint16_t(sc.src.w),
                                                           uint16_t(sc.src.h), uint16_t(sc.dst.w),
                                                           uint16_t(sc.dst.h), use_max);
                });
            });
            EJ_OPENCV("nearest/" + kernel + n + "/opencv", sc, CV_32SC1, cv::INTER_NEAREST);
        }
    }
}

// --- Bilinear.

template <typename T, typename Resize>
void add_bilinear(const std::string &name, const Scaling &sc, uint32_t step, Resize resize)
{
    add(name, [sc, step, resize](benchmark::State &state) {
        const auto src = plane<T>(sc.src, 4095);
        std::vector<T> dst(samples(sc.dst) * step);
        loop(state, samples(sc.dst), [&] { resize(src.data(), dst.data()); });
    });
}

void register_bilinear()
{
    for (const Scaling &sc : kCamera) {
        const std::string n = scaling_name(sc);
        const int32_t sw = int32_t(sc.src.w), sh = int32_t(sc.src.h);
        const int32_t dw = int32_t(sc.dst.w), dh = int32_t(sc.dst.h);
        add_bilinear<uint8_t>("bilinear/uint8_" + n + "/ej", sc, 1, [=](const uint8_t *s, uint8_t *d) {
            resize_2d_array_uint8(s, sw, sh, d, dw, dh);
        });
        EJ_OPENCV("bilinear/uint8_" + n + "/opencv", sc, CV_8UC1, cv::INTER_LINEAR);
        add_bilinear<uint8_t>("bilinear/uint8_v1_step3_" + n + "/ej", sc, 3,
                              [=](const uint8_t *s, uint8_t *d) {
                                  resize_2d_array_uint8_v1(s, sw, sh, d, dw, dh, 3);
                              });
        EJ_OPENCV_INTO_CHANNEL("bilinear/uint8_v1_step3_" + n + "/opencv", sc, CV_8UC1, 3);
        add_bilinear<uint16_t>("bilinear/uint16_" + n + "/ej", sc, 1, [=](const uint16_t *s, uint16_t *d) {
            resize_2d_array_uint16(s, sw, sh, d, dw, dh);
        });
        EJ_OPENCV("bilinear/uint16_" + n + "/opencv", sc, CV_16UC1, cv::INTER_LINEAR);
        add_bilinear<uint16_t>("bilinear/uint16_v1_step4_" + n + "/ej", sc, 4,
                               [=](const uint16_t *s, uint16_t *d) {
                                   resize_2d_array_uint16_v1(s, sw, sh, d, dw, dh, 4);
                               });
        EJ_OPENCV_INTO_CHANNEL("bilinear/uint16_v1_step4_" + n + "/opencv", sc, CV_16UC1, 4);
        add_bilinear<int32_t>("bilinear/int32_" + n + "/ej", sc, 1, [=](const int32_t *s, int32_t *d) {
            resize_2d_array_int32(s, sw, sh, d, dw, dh);
        });
        EJ_OPENCV("bilinear/int32_" + n + "/opencv", sc, CV_32FC1, cv::INTER_LINEAR);
        add_bilinear<uint32_t>("bilinear/uint32_" + n + "/ej", sc, 1, [=](const uint32_t *s, uint32_t *d) {
            resize_2d_array_uint32(s, sw, sh, d, dw, dh);
        });
        EJ_OPENCV("bilinear/uint32_" + n + "/opencv", sc, CV_32FC1, cv::INTER_LINEAR);
        add_bilinear<float>("bilinear/float_" + n + "/ej", sc, 1, [=](const float *s, float *d) {
            resize_2d_array_float(s, uint16_t(sw), sh, d, uint16_t(dw), dh);
        });
        EJ_OPENCV("bilinear/float_" + n + "/opencv", sc, CV_32FC1, cv::INTER_LINEAR);
        // The crop keeps the source extents: 16 columns and 8 rows off each side
        // of a slightly larger source.
        const Scaling grown = {{sc.src.w + 32, sc.src.h + 16}, sc.dst};
        add_bilinear<uint16_t>("bilinear/crop_uint16_" + n + "/ej", grown, 1,
                               [=](const uint16_t *s, uint16_t *d) {
                                   crop_resize_2d_array_uint16(s, uint32_t(sw + 32), uint32_t(sh + 16),
                                                               {16, 8}, {16, 8}, d, uint32_t(dw),
                                                               uint32_t(dh));
                               });
#if defined(EJ_BENCH_HAVE_OPENCV)
        add("bilinear/crop_uint16_" + n + "/opencv", [grown, sc](benchmark::State &state) {
            cv::setNumThreads(1);
            cv::Mat src(int(grown.src.h), int(grown.src.w), CV_16UC1);
            cv::randu(src, 0, 4096);
            const cv::Mat roi = src(cv::Rect(16, 8, int(sc.src.w), int(sc.src.h)));
            cv::Mat dst;
            loop(state, samples(sc.dst), [&] {
                cv::resize(roi, dst, cv::Size(int(sc.dst.w), int(sc.dst.h)), 0, 0, cv::INTER_LINEAR);
            });
        });
#endif
    }
}

// --- Bicubic.

constexpr int kLscPlanes = 4;

template <typename T>
void add_upscale_to_float(const std::string &name, const Scaling &sc, int planes)
{
    add(name, [sc, planes](benchmark::State &state) {
        std::vector<std::vector<T>> src;
        std::vector<std::vector<float>> dst;
        std::vector<const T *> in;
        std::vector<float *> out;
        for (int p = 0; p < planes; ++p) {
            src.push_back(plane<T>(sc.src, sizeof(T) == 1 ? 255 : 4095, uint32_t(p)));
            dst.emplace_back(samples(sc.dst));
        }
        for (int p = 0; p < planes; ++p) {
            in.push_back(src[size_t(p)].data());
            out.push_back(dst[size_t(p)].data());
        }
        loop(state, samples(sc.dst) * planes, [&] {
            if constexpr (sizeof(T) == 1)
                image_bicubic_upscale_uint8_to_float(in.data(), out.data(), uint16_t(sc.src.w),
                                                     uint16_t(sc.src.h), uint16_t(sc.dst.w),
                                                     uint16_t(sc.dst.h), uint16_t(planes));
            else
                image_bicubic_upscale_uint16_to_float(in.data(), out.data(), uint16_t(sc.src.w),
                                                      uint16_t(sc.src.h), uint16_t(sc.dst.w),
                                                      uint16_t(sc.dst.h), uint16_t(planes));
        });
    });
}

#if defined(EJ_BENCH_HAVE_OPENCV)
// OpenCV resizes float planes to float: the integer source is converted to
// float first, as the library's buffer does.
void add_opencv_upscale_to_float(const std::string &name, const Scaling &sc, int type, int planes)
{
    add(name, [=](benchmark::State &state) {
        cv::setNumThreads(1);
        // One source and one destination per plane, as on the library's side:
        // a destination reused for every plane would stay in the cache.
        std::vector<cv::Mat> src(static_cast<size_t>(planes)), dst(static_cast<size_t>(planes));
        for (cv::Mat &s : src) {
            s.create(int(sc.src.h), int(sc.src.w), type);
            cv::randu(s, 0, type == CV_8UC1 ? 256 : 4096);
        }
        cv::Mat as_float;
        loop(state, samples(sc.dst) * planes, [&] {
            for (size_t p = 0; p < size_t(planes); ++p) {
                src[p].convertTo(as_float, CV_32F);
                cv::resize(as_float, dst[p], cv::Size(int(sc.dst.w), int(sc.dst.h)), 0, 0,
                           cv::INTER_CUBIC);
            }
        });
    });
}
#endif

void register_bicubic()
{
    for (const Scaling &sc : kUpscales) {
        const int planes = sc.src.w == kGrid.w ? kLscPlanes : 1;
        const std::string n = scaling_name(sc) + (planes > 1 ? "x4" : "");
        add_upscale_to_float<uint8_t>("bicubic/upscale_uint8_to_float_" + n + "/ej", sc, planes);
        add_upscale_to_float<uint16_t>("bicubic/upscale_uint16_to_float_" + n + "/ej", sc, planes);
#if defined(EJ_BENCH_HAVE_OPENCV)
        add_opencv_upscale_to_float("bicubic/upscale_uint8_to_float_" + n + "/opencv", sc, CV_8UC1, planes);
        add_opencv_upscale_to_float("bicubic/upscale_uint16_to_float_" + n + "/opencv", sc, CV_16UC1, planes);
#endif
    }
    for (const Scaling &sc : kCamera) {
        const std::string n = scaling_name(sc);
        add("bicubic/resize_32f_to_u16p10_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<float>(sc.src, 4);
            std::vector<uint16_t> dst(samples(sc.dst));
            loop(state, samples(sc.dst), [&] {
                bicubic_resize_32f_to_u16p10(src.data(), uint16_t(sc.src.h), uint16_t(sc.src.w),
                                             dst.data(), uint16_t(sc.dst.h), uint16_t(sc.dst.w));
            });
        });
        EJ_OPENCV("bicubic/resize_32f_to_u16p10_" + n + "/opencv", sc, CV_32FC1, cv::INTER_CUBIC,
                  CV_16UC1, 1024.0);
        // u16p10 in, u16p10 out: OpenCV needs no conversion.
        add("bicubic/resize_u16_to_u16_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<uint16_t>(sc.src, 4095);
            std::vector<uint16_t> dst(samples(sc.dst));
            loop(state, samples(sc.dst), [&] {
                bicubic_resize_u16_to_u16(src.data(), uint16_t(sc.src.h), uint16_t(sc.src.w), 10,
                                          dst.data(), uint16_t(sc.dst.h), uint16_t(sc.dst.w));
            });
        });
        EJ_OPENCV("bicubic/resize_u16_to_u16_" + n + "/opencv", sc, CV_16UC1, cv::INTER_CUBIC);
    }
}

// --- Area.

void register_area()
{
    for (const Scaling &sc : kReductions) {
        const std::string n = scaling_name(sc);
        add("area/32f_to_u16p10_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<float>(sc.src, 4);
            std::vector<uint16_t> dst(samples(sc.dst));
            const float *in[1] = {src.data()};
            uint16_t *out[1] = {dst.data()};
            loop(state, samples(sc.dst), [&] {
                image_downscale_32f_to_u16p10(in, out, uint16_t(sc.src.w), uint16_t(sc.src.h),
                                              uint16_t(sc.dst.w), uint16_t(sc.dst.h), 1, nullptr);
            });
        });
        EJ_OPENCV("area/32f_to_u16p10_" + n + "/opencv", sc, CV_32FC1, cv::INTER_AREA, CV_16UC1,
                  1024.0);
        add("area/u16_to_u16_" + n + "/ej", [sc](benchmark::State &state) {
            const auto src = plane<uint16_t>(sc.src, 4095);
            std::vector<uint16_t> dst(samples(sc.dst));
            const uint16_t *in[1] = {src.data()};
            uint16_t *out[1] = {dst.data()};
            loop(state, samples(sc.dst), [&] {
                image_downscale_u16_to_u16(in, out, uint16_t(sc.src.w), uint16_t(sc.src.h), 10,
                                           uint16_t(sc.dst.w), uint16_t(sc.dst.h), 10, 1, nullptr);
            });
        });
        EJ_OPENCV("area/u16_to_u16_" + n + "/opencv", sc, CV_16UC1, cv::INTER_AREA);
    }
}

const bool registered = [] {
    register_nearest();
    register_bilinear();
    register_bicubic();
    register_area();
    return true;
}();

} // namespace
