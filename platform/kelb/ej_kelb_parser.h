/*
 * ej_kelb_parser.h - the camera stack's container-parser library
 * (libej_kelb_parser-vantor.so.0).
 *
 * ej_kelb_parse_record() completes a record in place so that its internal
 * references can be followed directly. This project ships a stand-in; a
 * camera stack's real library replaces it.
 *
 * Serialized form (docs/kelb-references.md has the full description): in a
 * container, each pointer field of an id-31 or id-34 record holds a u64 byte
 * offset from the start of the record, 0 meaning "none". Parsing checks that
 * every referenced range lies inside the record, behind its 24-byte fixed
 * part, then rewrites each offset as an absolute pointer. Records of other
 * ids (9 and 32 among them) carry no references: only their header is
 * checked.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef EJ_KELB_PARSER_H
#define EJ_KELB_PARSER_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Result codes of ej_kelb_parse_record(). 4 and 8 are left out on purpose:
 * the CMC parser passes these codes on as its own status, where 4 and 8
 * already mean "no memory" and "bad data".
 */
enum {
    EJ_KELB_OK = 0,
    EJ_KELB_ERR_NULL = 1,         /**< null record */
    EJ_KELB_ERR_TOO_SHORT = 2,    /**< size field below the 8-byte record header, or
                                       (ids 31, 34) below the 24-byte fixed part */
    EJ_KELB_ERR_OUT_OF_RANGE = 3, /**< a referenced range does not lie inside the
                                       record behind its fixed part */
    EJ_KELB_ERR_COUNT = 5,        /**< a count and its reference disagree: a non-zero
                                       count without a reference, or a reference
                                       with a zero count */
    EJ_KELB_ERR_MISALIGNED = 6,   /**< a reference is not a multiple of 8 */
    EJ_KELB_ERR_BAD_ELEMENT = 7   /**< an id-34 element of unknown kind or sub-type,
                                       a fixed element without its block, or a
                                       reference in a field its kind does not use */
};

/**
 * Complete a whole record (header first) in place.
 * @param record a record as long as its size field says; ids 31 and 34 are
 *        rewritten, so it must be writable and 8-byte aligned (a heap copy).
 * @return 0 on success, after which the record's references can be followed;
 *         a non-zero EJ_KELB_ERR_ code otherwise, with nothing written.
 */
int ej_kelb_parse_record(void *record);

#ifdef __cplusplus
}
#endif

#endif /* EJ_KELB_PARSER_H */
