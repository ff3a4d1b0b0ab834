#include "kelb_builder.h"

#include <cstring>
#include <stdexcept>

namespace ejtest {

ByteWriter &ByteWriter::u8(uint8_t v)
{
    b_.push_back(v);
    return *this;
}

ByteWriter &ByteWriter::u16(uint16_t v)
{
    return u8(uint8_t(v)).u8(uint8_t(v >> 8));
}

ByteWriter &ByteWriter::u32(uint32_t v)
{
    return u16(uint16_t(v)).u16(uint16_t(v >> 16));
}

ByteWriter &ByteWriter::u64(uint64_t v)
{
    return u32(uint32_t(v)).u32(uint32_t(v >> 32));
}

ByteWriter &ByteWriter::f32(float v)
{
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    return u32(bits);
}

ByteWriter &ByteWriter::bytes(const Bytes &b)
{
    b_.insert(b_.end(), b.begin(), b.end());
    return *this;
}

ByteWriter &ByteWriter::zeros(size_t n)
{
    return fill(n, 0);
}

ByteWriter &ByteWriter::fill(size_t n, uint8_t v)
{
    b_.insert(b_.end(), n, v);
    return *this;
}

ByteWriter &ByteWriter::cstr(const std::string &s)
{
    b_.insert(b_.end(), s.begin(), s.end());
    return u8(0);
}

ByteWriter &ByteWriter::pad_to(size_t length)
{
    if (b_.size() < length)
        b_.resize(length, 0);
    return *this;
}

Bytes make_record_with_size(uint16_t id, uint8_t version, const Bytes &payload,
                            uint32_t size_field)
{
    ByteWriter w;
    w.u32(size_field).u8(version).u8(0).u16(id).bytes(payload);
    return w.take();
}

Bytes make_record(uint16_t id, uint8_t version, const Bytes &payload)
{
    return make_record_with_size(id, version, payload, uint32_t(8 + payload.size()));
}

Bytes make_record_sized(uint16_t id, uint8_t version, const Bytes &payload, uint32_t total)
{
    if (total < 8)
        throw std::invalid_argument("a record is at least its 8-byte header");
    Bytes body = payload;
    body.resize(total - 8, 0);
    return make_record(id, version, body);
}

uint16_t get_u16(const uint8_t *p)
{
    return uint16_t(p[0] | p[1] << 8);
}

uint32_t get_u32(const uint8_t *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

static uint32_t sum_words(const Bytes &c, size_t from)
{
    uint32_t sum = 0;
    for (size_t off = from; off + 4 <= c.size(); off += 4)
        sum += get_u32(c.data() + off);
    return sum;
}

uint32_t checksum_a(const Bytes &c)
{
    return sum_words(c, 0) - get_u32(c.data() + 20);
}

uint32_t checksum_b(const Bytes &c)
{
    return sum_words(c, 24);
}

void seal(Bytes &c, Checksum rule)
{
    const uint32_t sum = rule == Checksum::RuleA ? checksum_a(c) : checksum_b(c);
    for (int i = 0; i < 4; ++i)
        c[20 + i] = uint8_t(sum >> (8 * i));
}

Bytes make_container(const std::vector<Bytes> &records, Checksum rule, const Bytes &trailing)
{
    ByteWriter w;
    w.u32(0x6b656c62).u32(0).zeros(12).u32(0);
    for (const Bytes &r : records)
        w.bytes(r);
    w.bytes(trailing);
    Bytes c = w.take();
    const uint32_t size = uint32_t(c.size());
    for (int i = 0; i < 4; ++i)
        c[4 + i] = uint8_t(size >> (8 * i));
    seal(c, rule);
    return c;
}

uint8_t *heap_copy(const Bytes &record)
{
    auto *copy = static_cast<uint8_t *>(std::malloc(record.size() ? record.size() : 1));
    if (copy == nullptr)
        throw std::bad_alloc();
    if (!record.empty())
        std::memcpy(copy, record.data(), record.size());
    return copy;
}

Parsed empty_parsed()
{
    auto *p = static_cast<cmc_parsed_data *>(std::calloc(1, sizeof(cmc_parsed_data)));
    if (p == nullptr)
        throw std::bad_alloc();
    return Parsed(p);
}

std::unique_ptr<ParseRun> parse(Bytes container, Bytes nvm)
{
    auto run = std::make_unique<ParseRun>();
    run->container = std::move(container);
    run->nvm = std::move(nvm);
    run->container_block = {run->container.data(), uint32_t(run->container.size())};
    run->nvm_block = {run->nvm.data(), uint32_t(run->nvm.size())};
    run->parsed.reset(ej_cmc_parser_init_v1(&run->container_block,
                                            run->nvm.empty() ? nullptr : &run->nvm_block));
    return run;
}

uint32_t decode(cmc_parsed_data *parsed, const Bytes &record, const uint8_t **copy)
{
    uint8_t *heap = heap_copy(record);
    if (copy != nullptr)
        *copy = heap;
    const uint32_t status = cmc_parse(heap, parsed, nullptr);
    if (status != CMC_PARSE_OK)
        std::free(heap);
    return status;
}

} // namespace ejtest
