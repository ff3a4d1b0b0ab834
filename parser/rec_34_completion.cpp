// Completion of slot 57: a container without an id-34 record but with id-19
// and/or id-20 records gets the id-34 form built from them, so that users
// find one layout whatever the container carried. The built record is one
// block (header, elements, then their arrays), released like a kept record.
#include "rec_34_completion.h"

#include <cstring>

#include "allocation.h"
#include "byte_io.h"
#include "cmc_diag.h"
#include "cmc_records.h"

namespace {

constexpr uint32_t kElementsAt = 32;
constexpr uint32_t kListType = 1; // id-20 list type of a list element

// Id-19 fields: the value at 8, counts A at 12 and B at 14.
constexpr uint32_t kRec19Value = 8, kRec19CountA = 12, kRec19CountB = 14;
constexpr uint32_t kRec19Entry = 28;
// Id-20 fields read into a fixed element, and its list header (type, L).
constexpr uint32_t kRec20Fixed0 = 8, kRec20Fixed1 = 10, kRec20Fixed2 = 12, kRec20Fixed3 = 13;

float from_q16_16(uint32_t v)
{
    return static_cast<float>(v) / 65536.0f; // exact scaling of the nearest float
}

// Values of 8 bytes: unsigned 16.16 at +0 to float, the u32 at +4 copied.
void convert_values(const uint8_t *src, uint32_t count, cmc_rec_34_value *out)
{
    for (uint32_t i = 0; i < count; ++i) {
        out[i].value = from_q16_16(load_u32(src + 8 * i));
        out[i].word = load_u32(src + 8 * i + 4);
    }
}

// Entries of 28 bytes to 32: two 16.16 values to float, 20 bytes unchanged.
void convert_entries(const uint8_t *src, uint32_t count, cmc_rec_34_entry *out)
{
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t *e = src + kRec19Entry * i;
        out[i].a = from_q16_16(load_u32(e));
        out[i].b = from_q16_16(load_u32(e + 4));
        std::memcpy(out[i].rest, e + 8, sizeof out[i].rest);
    }
}

// What the block will hold, decided before it is allocated.
struct plan {
    bool has_19 = false, has_20 = false;
    uint32_t a = 0, b = 0; // id-19 counts
    uint32_t l = 0;        // list length from the id-20 list header (0 without one)
    bool list = false;     // id-20 element is a list (else a fixed block)
    bool list_values = false; // the list values can be read (slot 41 filled)
    uint32_t size = 0;
};

plan plan_of(const cmc_parsed_data *p)
{
    plan k;
    k.has_19 = p->rec_19 != nullptr;
    k.has_20 = p->rec_20 != nullptr;
    if (k.has_19) {
        k.a = load_u16(p->rec_19 + kRec19CountA);
        k.b = load_u16(p->rec_19 + kRec19CountB);
    }
    if (k.has_20 && p->rec_20_list_header != nullptr) {
        k.l = load_u16(p->rec_20_list_header + 2);
        k.list = load_u16(p->rec_20_list_header) == kListType;
        k.list_values = p->rec_20_list != nullptr;
    }
    // 72 + 32·A + 8·B, 80 + 8·L, or 120 + 32·A + 8·B + 8·L: header and
    // padding, one element per record, the arrays, and 8 bytes for the fixed
    // block (kept even when the element is a list).
    uint32_t size = kElementsAt;
    if (k.has_19)
        size += 40 + 32 * k.a + 8 * k.b;
    if (k.has_20)
        size += 40 + 8 + 8 * k.l;
    k.size = size;
    return k;
}

// A header standing for the built record in drop-reason events.
void report(uint32_t size, cmc_diag_reason reason)
{
    uint8_t header[kRecordHeaderSize] = {};
    store_u32(header, size);
    header[4] = 100;
    store_u16(header + 6, 34);
    cmc_diag_record(header, reason);
}

} // namespace

void complete_rec_34(cmc_parsed_data *parsed)
{
    if (parsed->rec_34 != nullptr || (parsed->rec_19 == nullptr && parsed->rec_20 == nullptr))
        return;
    const plan k = plan_of(parsed);
    auto *block = static_cast<uint8_t *>(cmc_calloc(1, k.size));
    if (block == nullptr) {
        report(k.size, CMC_DIAG_NO_MEMORY);
        return;
    }
    auto *rec = reinterpret_cast<cmc_rec_34 *>(block);
    rec->header.size = k.size;
    rec->header.version = 100;
    rec->header.id = 34;
    rec->count = uint32_t(k.has_19) + uint32_t(k.has_20);
    rec->elements = reinterpret_cast<cmc_rec_34_element *>(block + kElementsAt);

    uint8_t *next = block + kElementsAt + sizeof(cmc_rec_34_element) * rec->count;
    cmc_rec_34_element *element = rec->elements;
    if (k.has_19) {
        element->kind = CMC_REC_34_KIND_TABLE;
        element->word4 = load_u16(parsed->rec_19 + kRec19Value);
        element->count_a = k.a;
        element->count_b = k.b;
        if (k.a != 0) {
            element->entries = reinterpret_cast<cmc_rec_34_entry *>(next);
            convert_entries(parsed->rec_19_entries, k.a, element->entries);
            next += sizeof(cmc_rec_34_entry) * k.a;
        }
        if (k.b != 0) {
            element->values = reinterpret_cast<cmc_rec_34_value *>(next);
            convert_values(parsed->rec_19_values, k.b, element->values);
            next += sizeof(cmc_rec_34_value) * k.b;
        }
        ++element;
    }
    if (k.has_20) {
        element->kind = CMC_REC_34_KIND_CURVE;
        if (k.list) {
            element->word4 = CMC_REC_34_CURVE_LIST;
            if (!k.list_values) {
                // The id-20 record was too short for its list: the element
                // stays a list, with no values (count 0, no pointer).
                report(k.size, CMC_DIAG_PART_TOO_SHORT);
            } else if (k.l != 0) {
                element->count_b = k.l;
                element->values = reinterpret_cast<cmc_rec_34_value *>(next);
                convert_values(parsed->rec_20_list, k.l, element->values);
            }
        } else {
            element->word4 = CMC_REC_34_CURVE_FIXED;
            const uint16_t fixed[4] = {load_u16(parsed->rec_20 + kRec20Fixed0),
                                       load_u16(parsed->rec_20 + kRec20Fixed1),
                                       parsed->rec_20[kRec20Fixed2], parsed->rec_20[kRec20Fixed3]};
            element->fixed = reinterpret_cast<uint16_t *>(next);
            std::memcpy(element->fixed, fixed, sizeof fixed);
        }
    }
    parsed->rec_34 = block;
}
