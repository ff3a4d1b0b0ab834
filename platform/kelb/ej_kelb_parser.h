/*
 * ej_kelb_parser.h - the camera stack's container-parser library
 * (libej_kelb_parser-vantor.so.0).
 *
 * ej_kelb_parse_record() completes a record in place so that its internal
 * references can be followed directly. This project ships a stand-in; a
 * camera stack's real library replaces it.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef EJ_KELB_PARSER_H
#define EJ_KELB_PARSER_H

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes of ej_kelb_parse_record(). */
enum {
    EJ_KELB_OK = 0,
    EJ_KELB_ERR_NULL = 1,      /**< null record */
    EJ_KELB_ERR_TOO_SHORT = 2  /**< size field below the 8-byte record header */
};

/**
 * Complete a whole record (header first) in place.
 * @return 0 on success, after which the record's references can be followed;
 *         a non-zero EJ_KELB_ERR_ code otherwise, with nothing written.
 */
int ej_kelb_parse_record(void *record);

#ifdef __cplusplus
}
#endif

#endif /* EJ_KELB_PARSER_H */
