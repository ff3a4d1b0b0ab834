// Stand-in container-parser library. Records of ids 31 and 34 hold their
// internal references as u64 byte offsets from the record's start (0: none);
// parsing turns them into absolute pointers after checking, in a first pass
// that writes nothing, that every referenced range lies inside the record.
// Every other id is checked for its header only.
#include "ej_kelb_parser.h"

#include <cstdint>
#include <cstring>

static_assert(sizeof(void *) == 8, "references are rewritten as 8-byte pointers");

namespace {

constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kFixedPart = 24;   // header, u32 count at 8, reference at 16
constexpr uint32_t kCountOffset = 8;
constexpr uint32_t kTopReference = 16;

constexpr uint32_t kRec31Entry = 72;
constexpr uint32_t kRec34Element = 40;
constexpr uint32_t kRec34Entry = 32;
constexpr uint32_t kRec34Value = 8;
constexpr uint32_t kRec34Fixed = 8;

// Element fields of id 34.
constexpr uint32_t kKind = 0, kSubType = 4, kCountA = 8, kCountB = 12;
constexpr uint32_t kRefEntries = 16, kRefValues = 24, kRefFixed = 32;
constexpr uint32_t kKindTable = 0, kKindCurve = 1, kSubList = 2, kSubFixed = 3;

uint32_t load_u32(const uint8_t *p)
{
    uint8_t b[4];
    std::memcpy(b, p, 4);
    return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
}

uint64_t load_u64(const uint8_t *p)
{
    return uint64_t(load_u32(p)) | uint64_t(load_u32(p + 4)) << 32;
}

class record_view {
public:
    record_view(uint8_t *rec, uint32_t size) : rec_(rec), size_(size) {}

    uint32_t u32(uint32_t offset) const { return load_u32(rec_ + offset); }
    uint64_t reference(uint32_t offset) const { return load_u64(rec_ + offset); }

    // The reference at field covers count items of item_size bytes.
    int check(uint32_t field, uint64_t count, uint32_t item_size) const
    {
        const uint64_t target = reference(field);
        if ((count == 0) != (target == 0))
            return EJ_KELB_ERR_COUNT;
        if (count == 0)
            return EJ_KELB_OK;
        if (target % 8 != 0)
            return EJ_KELB_ERR_MISALIGNED;
        // target <= size first, so that the sum below cannot wrap.
        if (target < kFixedPart || target > size_ || count * item_size > size_ - target)
            return EJ_KELB_ERR_OUT_OF_RANGE;
        return EJ_KELB_OK;
    }

    // A field that the element's kind does not use holds no reference.
    int check_unused(uint32_t field) const
    {
        return reference(field) == 0 ? EJ_KELB_OK : EJ_KELB_ERR_BAD_ELEMENT;
    }

    // Offset to absolute pointer (0 stays null).
    void resolve(uint32_t field) const
    {
        const uint64_t target = reference(field);
        uint8_t *pointer = target == 0 ? nullptr : rec_ + target;
        std::memcpy(rec_ + field, &pointer, sizeof pointer);
    }

private:
    uint8_t *rec_;
    uint32_t size_;
};

int check_rec_31(const record_view &r)
{
    return r.check(kTopReference, r.u32(kCountOffset), kRec31Entry);
}

void resolve_rec_31(const record_view &r)
{
    r.resolve(kTopReference);
}

// Every element, even beyond the four that the CMC parser keeps, must be
// sound: the record is complete or rejected as a whole.
int check_rec_34_element(const record_view &r, uint32_t e)
{
    int status = EJ_KELB_OK;
    const auto first_failure = [&status](int s) {
        if (status == EJ_KELB_OK)
            status = s;
    };
    switch (r.u32(e + kKind)) {
    case kKindTable:
        first_failure(r.check(e + kRefEntries, r.u32(e + kCountA), kRec34Entry));
        first_failure(r.check(e + kRefValues, r.u32(e + kCountB), kRec34Value));
        first_failure(r.check_unused(e + kRefFixed));
        return status;
    case kKindCurve:
        first_failure(r.check_unused(e + kRefEntries));
        if (r.u32(e + kSubType) == kSubList) {
            first_failure(r.check(e + kRefValues, r.u32(e + kCountB), kRec34Value));
            first_failure(r.check_unused(e + kRefFixed));
        } else if (r.u32(e + kSubType) == kSubFixed) {
            first_failure(r.check_unused(e + kRefValues));
            if (r.reference(e + kRefFixed) == 0)
                first_failure(EJ_KELB_ERR_BAD_ELEMENT);
            first_failure(r.check(e + kRefFixed, 1, kRec34Fixed));
        } else {
            first_failure(EJ_KELB_ERR_BAD_ELEMENT);
        }
        return status;
    default:
        return EJ_KELB_ERR_BAD_ELEMENT;
    }
}

int check_rec_34(const record_view &r)
{
    const uint32_t count = r.u32(kCountOffset);
    const int status = r.check(kTopReference, count, kRec34Element);
    if (status != EJ_KELB_OK)
        return status;
    const uint64_t elements = r.reference(kTopReference);
    for (uint32_t i = 0; i < count; ++i) {
        const int s = check_rec_34_element(r, uint32_t(elements + uint64_t(i) * kRec34Element));
        if (s != EJ_KELB_OK)
            return s;
    }
    return EJ_KELB_OK;
}

void resolve_rec_34(const record_view &r)
{
    // Element offsets are taken before the top reference is rewritten.
    const uint32_t count = r.u32(kCountOffset);
    const uint64_t elements = r.reference(kTopReference);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t e = uint32_t(elements + uint64_t(i) * kRec34Element);
        r.resolve(e + kRefEntries);
        r.resolve(e + kRefValues);
        r.resolve(e + kRefFixed);
    }
    r.resolve(kTopReference);
}

} // namespace

extern "C" int ej_kelb_parse_record(void *record)
{
    if (record == nullptr)
        return EJ_KELB_ERR_NULL;
    auto *rec = static_cast<uint8_t *>(record);
    const uint32_t size = load_u32(rec);
    if (size < kHeaderSize)
        return EJ_KELB_ERR_TOO_SHORT;
    const uint16_t id = uint16_t(rec[6] | rec[7] << 8);
    if (id != 31 && id != 34)
        return EJ_KELB_OK;
    if (size < kFixedPart)
        return EJ_KELB_ERR_TOO_SHORT;

    const record_view view(rec, size);
    const int status = id == 31 ? check_rec_31(view) : check_rec_34(view);
    if (status != EJ_KELB_OK)
        return status;
    if (id == 31)
        resolve_rec_31(view);
    else
        resolve_rec_34(view);
    return EJ_KELB_OK;
}
