// Fuzz target: the linear-algebra kernels and the lens-shading table
// functions on fuzzed extents and values. Matrix views are consistent with
// their buffers (strides are trusted by contract): row- or column-major,
// with exact-size sources and guarded destinations. The NVM data and the
// lens-shading structures are built directly, within the extents their
// producers guarantee.
//
// Input layout:
//   u8 op       which function (modulo the function count)
//   u8 fail_at  the k-th allocation of the call fails (0: none)
//   extents and options, as each case below reads them
//   the rest: value bytes, repeated as needed to fill every source
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <vector>

#include "cmc_records.h"
#include "ej_cmc_lsc.h"
#include "ej_nvm.h"
#include "fuzz_input.h"
#include "fuzz_support.h"
#include "guarded_buffer.h"

namespace {

using ejfuzz::FuzzInput;
using ejfuzz::Guarded;
using ejfuzz::Source;

// The allocation to fail in this run; armed around the call under test only,
// so that the fixtures a case builds never see it.
uint8_t g_fail_at = 0;

template <typename Call>
auto injected(Call call)
{
    ejfuzz::FailAllocation fail(g_fail_at);
    return call();
}

int32_t dim(FuzzInput &in, uint32_t max) { return static_cast<int32_t>(in.in_range(0, max)); }
size_t count(int64_t w, int64_t h) { return w > 0 && h > 0 ? size_t(w) * size_t(h) : 0; }

// Strides of a dense w x h float block read row-major or column-major.
struct Layout {
    int32_t row, col;
};
Layout layout(FuzzInput &in, int32_t w, int32_t h)
{
    const int32_t e = int32_t(sizeof(float));
    if ((in.u8() & 1) != 0)
        return {e, (h > 0 ? h : 1) * e};
    return {(w > 0 ? w : 1) * e, e};
}

void check_status(uint32_t status, std::initializer_list<uint32_t> allowed)
{
    for (uint32_t s : allowed)
        if (status == s)
            return;
    EJ_FUZZ_CHECK(false && "unexpected status");
}

void transpose(FuzzInput &in)
{
    const int32_t w = dim(in, 24) - 1, h = dim(in, 24) - 1;
    const Layout ls = layout(in, w, h), ld = layout(in, h, w);
    Source<float> src(count(w, h), in);
    Guarded<float> dst(count(w, h));
    const uint32_t status = injected(
        [&] { return transpose_m(src.data(), ls.row, ls.col, w, h, dst.data(), ld.row, ld.col); });
    check_status(status, {0});
    dst.check(status);
}

// mul_mm and mul_mm_lsc: the _lsc form sums over a grid whose sample count
// is the inner dimension.
void mul_mm_case(FuzzInput &in, bool lsc)
{
    const uint16_t gw = uint16_t(in.in_range(0, 8)), gh = uint16_t(in.in_range(0, 8));
    const uint16_t my = uint16_t(in.in_range(0, 5)), mx = uint16_t(in.in_range(0, 5));
    const int32_t inner = lsc ? int32_t(gw) * gh : dim(in, 16);
    const int32_t a_h = dim(in, 16), b_w = dim(in, 16);
    const int32_t b_h = (in.u8() & 7) == 0 ? dim(in, 16) : inner; // sometimes mismatched
    const Layout la = layout(in, inner, a_h), lb = layout(in, b_w, b_h), ld = layout(in, b_w, a_h);
    Source<float> a(count(inner, a_h), in), b(count(b_w, b_h), in);
    Guarded<float> dst(count(b_w, a_h));
    const uint32_t status = injected([&] {
        return lsc ? mul_mm_lsc(a.data(), la.row, la.col, inner, a_h, b.data(), lb.row, lb.col,
                                b_w, b_h, dst.data(), ld.row, ld.col, gh, gw, my, mx)
                   : mul_mm(a.data(), la.row, la.col, inner, a_h, b.data(), lb.row, lb.col, b_w,
                            b_h, dst.data(), ld.row, ld.col);
    });
    check_status(status, {0, 32});
    EJ_FUZZ_CHECK((status == 32) == (b_h != inner));
    dst.check(status);
}

void mul_mv_case(FuzzInput &in, bool lsc)
{
    const uint16_t gw = uint16_t(in.in_range(0, 8)), gh = uint16_t(in.in_range(0, 8));
    const uint16_t my = uint16_t(in.in_range(0, 5)), mx = uint16_t(in.in_range(0, 5));
    const int32_t inner = lsc ? int32_t(gw) * gh : dim(in, 16);
    const int32_t a_h = dim(in, 16);
    const int32_t x_len = (in.u8() & 7) == 0 ? dim(in, 16) : inner;
    const int32_t x_step = int32_t(in.in_range(1, 2)), y_step = int32_t(in.in_range(1, 2));
    const Layout la = layout(in, inner, a_h);
    Source<float> a(count(inner, a_h), in), x(count(x_len, x_step), in);
    Guarded<float> y(count(a_h, y_step));
    const int32_t xs = x_step * int32_t(sizeof(float)), ys = y_step * int32_t(sizeof(float));
    const uint32_t status = injected([&] {
        return lsc ? mul_mv_lsc(a.data(), la.row, la.col, inner, a_h, x.data(), xs, x_len,
                                y.data(), ys, gh, gw, my, mx)
                   : mul_mv(a.data(), la.row, la.col, inner, a_h, x.data(), xs, x_len, y.data(), ys);
    });
    check_status(status, {0, 32});
    y.check(status);
}

void lu_m(FuzzInput &in)
{
    const int32_t n = dim(in, 17) - 1;
    const bool null_src = (in.u8() & 7) == 0;
    const Layout ls = layout(in, n, n), ld = layout(in, n, n);
    Source<float> src(count(n, n), in);
    Guarded<float> dst(count(n, n));
    Guarded<uint32_t> pivot(count(n, 1));
    const uint32_t status = injected([&] {
        return lu_decomposition_m(null_src ? nullptr : src.data(), ls.row, ls.col, pivot.data(),
                                  dst.data(), ld.row, ld.col, n);
    });
    check_status(status, {0, 4});
    dst.check(status);
    pivot.check(status);
}

// The design matrices of a fit on a w x h grid, and its factors.
struct Fit {
    Fit(uint16_t w, uint16_t h, uint16_t terms)
        : m(size_t(w) * h), design(m * terms), design_t(m * terms), lu(size_t(terms) * terms),
          pivot(terms)
    {
    }
    uint32_t run(uint16_t w, uint16_t h, uint16_t terms, bool lsc, uint16_t my, uint16_t mx)
    {
        return lsc ? lu_decomposition_lsc(design.data(), design_t.data(), lu.data(), pivot.data(),
                                          w, h, terms, my, mx)
                   : lu_decomposition(design.data(), design_t.data(), lu.data(), pivot.data(), w,
                                      h, terms);
    }
    void check() const
    {
        EJ_FUZZ_CHECK(design.guards_intact() && design_t.guards_intact());
        EJ_FUZZ_CHECK(lu.guards_intact() && pivot.guards_intact());
    }
    size_t m;
    Guarded<float> design, design_t, lu;
    Guarded<uint32_t> pivot;
};

void lu_fit(FuzzInput &in, bool lsc)
{
    const uint16_t w = uint16_t(in.in_range(0, 20)), h = uint16_t(in.in_range(0, 20));
    const uint16_t terms = uint16_t(in.in_range(15, 17));
    const uint16_t my = uint16_t(in.in_range(0, 6)), mx = uint16_t(in.in_range(0, 6));
    Fit fit(w, h, terms);
    check_status(injected([&] { return fit.run(w, h, terms, lsc, my, mx); }), {0, 2, 4});
    fit.check();
}

void polynomial_upscale(FuzzInput &in)
{
    const uint16_t sw = uint16_t(in.in_range(1, 20)), sh = uint16_t(in.in_range(1, 20));
    const uint16_t dw = uint16_t(in.in_range(0, 40)), dh = uint16_t(in.in_range(0, 40));
    const uint16_t my = uint16_t(in.in_range(0, 4)), mx = uint16_t(in.in_range(0, 4));
    const uint8_t flags = in.u8();
    const bool margins = (flags & 1) != 0;
    const int null_plane = (flags >> 1) % 8; // 0 ... 3: that source plane is null
    constexpr uint16_t kTerms = 15;
    Fit fit(sw, sh, kTerms);
    if (fit.run(sw, sh, kTerms, margins, my, mx) != 0)
        return;
    std::vector<std::unique_ptr<Source<float>>> src;
    std::vector<std::unique_ptr<Guarded<float>>> dst;
    float *src_planes[4], *dst_planes[4];
    for (int p = 0; p < 4; ++p) {
        src.push_back(std::make_unique<Source<float>>(count(sw, sh), in));
        dst.push_back(std::make_unique<Guarded<float>>(count(dw, dh)));
        src_planes[p] = p == null_plane ? nullptr : const_cast<float *>(src.back()->data());
        dst_planes[p] = dst.back()->data();
    }
    const uint32_t status = injected([&] {
        return lsc_polynomial_upscale_float(fit.design_t.data(), fit.lu.data(), fit.pivot.data(),
                                            src_planes, dst_planes, sw, sh, dw, dh, kTerms, my, mx,
                                            margins ? 1 : 0);
    });
    check_status(status, {0, 2});
    for (const auto &d : dst)
        EJ_FUZZ_CHECK(d->guards_intact());
}

// NVM data as the NVM library hands it over: every channel table holds
// lsc_grid_width x lsc_grid_height samples of the width frac_bits selects,
// or is null when the grid is empty.
class FakeNvm {
public:
    explicit FakeNvm(FuzzInput &in) : data_()
    {
        data_.lsc_grid_width = uint8_t(in.in_range(0, 20));
        data_.lsc_grid_height = uint8_t(in.in_range(0, 20));
        data_.lsc_table_count = uint8_t(in.in_range(0, 3));
        const size_t samples = size_t(data_.lsc_grid_width) * data_.lsc_grid_height;
        tables_.resize(data_.lsc_table_count);
        for (nvm_lsc_table &t : tables_) {
            t.frac_bits = in.u8();
            const size_t bytes = samples * (t.frac_bits > 8 ? 2 : 1);
            for (void *&channel : t.channel_tables) {
                if (samples == 0)
                    continue;
                channel = std::malloc(bytes);
                if (channel == nullptr)
                    std::abort();
                in.fill(channel, bytes);
            }
        }
        data_.lsc_tables = tables_.empty() ? nullptr : tables_.data();
    }
    ~FakeNvm()
    {
        for (nvm_lsc_table &t : tables_)
            for (void *channel : t.channel_tables)
                std::free(channel);
    }
    FakeNvm(const FakeNvm &) = delete;
    FakeNvm &operator=(const FakeNvm &) = delete;
    const ej_nvm_data *get() const { return &data_; }

private:
    ej_nvm_data data_;
    std::vector<nvm_lsc_table> tables_;
};

// Reads every plane of a result, so that the sanitizer checks its extents.
void touch(const computed_lsc_tables *t, uint8_t expected_tables, uint16_t w, uint16_t h)
{
    if (t == nullptr)
        return;
    EJ_FUZZ_CHECK(t->num_tables == expected_tables);
    volatile float sink = 0;
    for (unsigned i = 0; i < t->num_tables; ++i)
        for (size_t k = 0; k < 4 * size_t(w) * h; ++k)
            sink = sink + t->tables[i][k];
}

void upscale_tables(FuzzInput &in, bool polynomial)
{
    const uint16_t dw = uint16_t(in.in_range(0, 48)), dh = uint16_t(in.in_range(0, 48));
    const uint32_t flip = in.in_range(0, 4);
    const uint8_t exclude = in.u8() & 1;
    FakeNvm nvm(in);
    computed_lsc_tables *t = injected([&] {
        return polynomial ? compute_upscaled_lsc_tables_polynom4th(dw, dh, nvm.get(), flip, exclude)
                          : compute_upscaled_lsc_tables_bicubic(dw, dh, nvm.get(), flip);
    });
    touch(t, nvm.get()->lsc_table_count, dw, dh);
    deinit_computed_upscale_lsc_tables(t);
}

// Lens-shading and ratio structures as the decoders build them: grids of
// grid_width x grid_height samples where grid_map is not negative.
template <typename S, typename Set>
S *make_structure(FuzzInput &in, uint16_t sets, uint16_t w, uint16_t h)
{
    auto *s = static_cast<S *>(std::calloc(1, sizeof(S)));
    auto *array = static_cast<Set *>(std::calloc(sets != 0 ? sets : 1, sizeof(Set)));
    if (s == nullptr || array == nullptr)
        std::abort();
    s->num_sets = sets;
    s->grid_width = w;
    s->grid_height = h;
    s->sets = array;
    for (int8_t &m : s->grid_map)
        m = static_cast<int8_t>(int(in.in_range(0, 4)) - 1);
    const size_t n = size_t(w) * h;
    for (uint16_t i = 0; i < sets; ++i) {
        array[i].grid_bits = uint16_t(in.in_range(0, 16));
        for (int g = 0; g < 16; ++g) {
            if (s->grid_map[g] < 0)
                continue;
            array[i].grids[g] = static_cast<uint16_t *>(std::malloc(n != 0 ? n * 2 : 1));
            if (array[i].grids[g] == nullptr)
                std::abort();
            in.fill(array[i].grids[g], n * 2);
        }
    }
    return s;
}

void ratio_correction(FuzzInput &in)
{
    static const uint32_t kPatterns[] = {0, 1, 2, 3, 4, 128, 129, 130, 131, 132,
                                         256, 257, 258, 259, 260, 261, 262, 263, 264};
    const uint16_t w = uint16_t(in.in_range(0, 8)), h = uint16_t(in.in_range(0, 8));
    const uint16_t sets = uint16_t(in.in_range(0, 3));
    const uint16_t ratio_sets = (in.u8() & 7) == 0 ? uint16_t(in.in_range(0, 3)) : sets;
    const uint32_t cfa = kPatterns[in.u8() % (sizeof(kPatterns) / sizeof(kPatterns[0]))];
    const uint32_t order = in.in_range(0, 4);
    const uint8_t num_tables = uint8_t(in.in_range(0, 3));
    const uint8_t nulls = in.u8(); // bits 0..2: that one null; 3..5 all set: other extents
    auto *ls = make_structure<cmc_lens_shading4x4, cmc_lens_shading4x4_set>(in, sets, w, h);
    // Now and then ratio grids of other extents: smaller ones must be
    // refused, larger ones are read only as far as the lens-shading grids.
    const bool other_extents = (nulls & 0x38) == 0x38;
    const uint16_t rw = other_extents ? uint16_t(in.in_range(0, 8)) : w;
    const uint16_t rh = other_extents ? uint16_t(in.in_range(0, 8)) : h;
    auto *ratio = make_structure<cmc_lens_shading_ratio, cmc_lens_shading_ratio_set>(in, ratio_sets, rw, rh);
    for (uint16_t i = 0; i < ratio_sets; ++i)
        ratio->sets[i].nvm_table_index = uint16_t(in.in_range(0, 4));

    auto *computed = static_cast<computed_lsc_tables *>(std::calloc(1, sizeof(computed_lsc_tables)));
    if (computed == nullptr)
        std::abort();
    computed->num_tables = num_tables;
    computed->tables = static_cast<float **>(std::calloc(num_tables != 0 ? num_tables : 1, sizeof(float *)));
    if (computed->tables == nullptr)
        std::abort();
    const size_t n = 4 * size_t(w) * h;
    for (uint8_t t = 0; t < num_tables; ++t) {
        computed->tables[t] = static_cast<float *>(std::malloc(n != 0 ? n * sizeof(float) : 1));
        if (computed->tables[t] == nullptr)
            std::abort();
        in.fill(computed->tables[t], n * sizeof(float));
    }
    const uint32_t status = injected([&] {
        return ratio_based_sample_to_sample_correction((nulls & 1) != 0 ? nullptr : ls,
                                                       (nulls & 2) != 0 ? nullptr : ratio,
                                                       (nulls & 4) != 0 ? nullptr : computed, cfa,
                                                       order);
    });
    check_status(status, {0, 8, 32});
    deinit_computed_upscale_lsc_tables(computed);
    cmc_lens_shading4x4_deinit(ls);
    cmc_lens_shading_ratio_deinit(ratio);
}

constexpr unsigned kOps = 12;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    FuzzInput in(data, size);
    const unsigned op = in.u8() % kOps;
    g_fail_at = in.u8();
    switch (op) {
    case 0: transpose(in); break;
    case 1: mul_mm_case(in, false); break;
    case 2: mul_mm_case(in, true); break;
    case 3: mul_mv_case(in, false); break;
    case 4: mul_mv_case(in, true); break;
    case 5: lu_m(in); break;
    case 6: lu_fit(in, false); break;
    case 7: lu_fit(in, true); break;
    case 8: polynomial_upscale(in); break;
    case 9: upscale_tables(in, true); break;
    case 10: upscale_tables(in, false); break;
    default: ratio_correction(in); break;
    }
    return 0;
}
