/* A minimal C client of the installed library: rejects an empty container,
 * parses a one-record container and releases the result. */
#include <stdio.h>
#include <string.h>

#include "ej_cmc_parser.h"
#include "ej_cmc_version.h"

static void put_u32(uint8_t *p, uint32_t v)
{
    p[0] = (uint8_t)v;
    p[1] = (uint8_t)(v >> 8);
    p[2] = (uint8_t)(v >> 16);
    p[3] = (uint8_t)(v >> 24);
}

int main(void)
{
    /* 24-byte container header, then an id-5 record of 16 bytes. */
    uint8_t bytes[40];
    ej_data_block block;
    cmc_parsed_data *parsed;
    uint32_t sum = 0, i;

    memset(bytes, 0, sizeof bytes);
    put_u32(bytes + 4, sizeof bytes);
    put_u32(bytes + 24, 16);
    bytes[28] = 100;
    bytes[30] = 5;
    for (i = 24; i < sizeof bytes; i += 4)
        sum += (uint32_t)bytes[i] | (uint32_t)bytes[i + 1] << 8 |
               (uint32_t)bytes[i + 2] << 16 | (uint32_t)bytes[i + 3] << 24;
    /* The checksum word holds the 32-bit sum of the words behind the header. */
    put_u32(bytes + 20, sum);

    block.data = bytes;
    block.size = 0;
    if (ej_cmc_parser_init(&block) != NULL)
        return 1;
    block.size = sizeof bytes;
    parsed = ej_cmc_parser_init(&block);
    if (parsed == NULL || parsed->rec_5 == NULL)
        return 2;
    ej_cmc_parser_deinit(parsed);
    printf("consumer of ej_cmc_parser %s: ok\n", EJ_CMC_PARSER_VERSION_STRING);
    return 0;
}
