/* Every public header, compiled as C99: a camera stack written in C must be
 * able to include them all together. */
#include "ej_cmc_parser.h"
#include "cmc_records.h"
#include "ej_cmc_lsc.h"
#include "ej_cmc_resample.h"
#include "ej_cmc_version.h"
#include "ej_kelb_parser.h"
#include "ej_log.h"
#include "ej_nvm.h"

int main(void)
{
    cmc_parsed_data parsed = {0};
    ej_data_block block = {0, 0};
    parsed.container = &block;
    return parsed.rec_1 != 0 || sizeof(cmc_rec_2) != 36;
}
