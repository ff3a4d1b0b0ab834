// The normal equations of the 15-term 4th-order polynomial fit on a sample
// grid: design matrix, its transpose, the normal matrix design_t * design
// (over the whole grid or its interior) and the LU factors of that matrix.
#include <cstdint>
#include <cstdlib>

#include "allocation.h"
#include "ej_cmc_lsc.h"

namespace {

constexpr uint16_t kPolynomialTerms = 15;

// Row of the design matrix for the sample at 1-based (x, y). The integer
// powers are formed in u32 (they wrap for coordinates above 1625, as the
// definition of the fit says) and converted; every other term is the float
// product of two of them in the order written.
void fill_design_row(float *row, uint32_t x, uint32_t y)
{
    const float fx = static_cast<float>(x);
    const float fy = static_cast<float>(y);
    const float fx2 = static_cast<float>(x * x);
    const float fy2 = static_cast<float>(y * y);
    const float fx3 = static_cast<float>(x * x * x);
    const float fy3 = static_cast<float>(y * y * y);
    row[0] = 1.0f;
    row[1] = fx;
    row[2] = fy;
    row[3] = fx2;
    row[4] = fx * fy;
    row[5] = fy2;
    row[6] = fx3;
    row[7] = fx2 * fy;
    row[8] = fx * fy2;
    row[9] = fy3;
    row[10] = fx * fx3;
    row[11] = fx3 * fy;
    row[12] = fx2 * fy2;
    row[13] = fx * fy3;
    row[14] = fy * fy3;
}

// Frees the normal-matrix scratch on every path.
struct Scratch {
    float *data = nullptr;
    ~Scratch() { std::free(data); }
};

struct Interior {
    bool used;
    uint16_t margin_y;
    uint16_t margin_x;
};

uint32_t decompose_normal_matrix(float *design, float *design_t, float *lu, uint32_t *pivot,
                                 uint16_t width, uint16_t height, uint16_t num_terms,
                                 Interior interior)
{
    // Fewer than 15 columns cannot hold a design row: refused as a failed
    // step, before anything is allocated or written.
    if (num_terms < kPolynomialTerms)
        return 2;
    const int64_t m = static_cast<int64_t>(width) * height;
    const int32_t nt = num_terms;
    // The transpose is addressed with a row stride of 4 * m bytes, a 32-bit
    // argument: a larger grid cannot be expressed and fails as a step.
    if (4 * m > INT32_MAX)
        return 2;
    const int32_t mi = static_cast<int32_t>(m);

    Scratch normal;
    normal.data = static_cast<float *>(
        cmc_calloc(static_cast<size_t>(nt) * static_cast<size_t>(nt), sizeof(float)));
    if (normal.data == nullptr)
        return 4;

    if (width != 0 && height != 0) {
        if (design == nullptr)
            return 2;
        float *row = design;
        for (uint32_t y = 1; y <= height; ++y)
            for (uint32_t x = 1; x <= width; ++x, row += nt)
                fill_design_row(row, x, y);
    }

    uint32_t status = transpose_m(design, 4 * nt, 4, nt, mi, design_t, 4 * mi, 4);
    if (status == 0) {
        if (interior.used)
            status = mul_mm_lsc(design_t, 4 * mi, 4, mi, nt, design, 4 * nt, 4, nt, mi,
                                normal.data, 4 * nt, 4, height, width, interior.margin_y,
                                interior.margin_x);
        else
            status = mul_mm(design_t, 4 * mi, 4, mi, nt, design, 4 * nt, 4, nt, mi, normal.data,
                            4 * nt, 4);
    }
    if (status == 0)
        status = lu_decomposition_m(normal.data, 4 * nt, 4, pivot, lu, 4 * nt, 4, nt);
    return status == 0 ? 0 : 2;
}

} // namespace

uint32_t lu_decomposition(float *design, float *design_t, float *lu, uint32_t *pivot,
                          uint16_t width, uint16_t height, uint16_t num_terms)
{
    return decompose_normal_matrix(design, design_t, lu, pivot, width, height, num_terms,
                                   Interior{false, 0, 0});
}

uint32_t lu_decomposition_lsc(float *design, float *design_t, float *lu, uint32_t *pivot,
                              uint16_t width, uint16_t height, uint16_t num_terms,
                              uint16_t margin_y, uint16_t margin_x)
{
    return decompose_normal_matrix(design, design_t, lu, pivot, width, height, num_terms,
                                   Interior{true, margin_y, margin_x});
}
