/**
 * @file ej_cmc_export.h
 * @brief Symbol export for libej_cmc_parser-vantor.so.0.
 *
 * The library is built with hidden visibility; only declarations marked
 * EJ_CMC_API are exported. For consumers the macro is harmless.
 */
#ifndef EJ_CMC_EXPORT_H
#define EJ_CMC_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define EJ_CMC_API __attribute__((visibility("default")))
#else
#define EJ_CMC_API
#endif

#ifdef __cplusplus
#define EJ_CMC_EXTERN_C_BEGIN extern "C" {
#define EJ_CMC_EXTERN_C_END }
#else
#define EJ_CMC_EXTERN_C_BEGIN
#define EJ_CMC_EXTERN_C_END
#endif

#endif /* EJ_CMC_EXPORT_H */
