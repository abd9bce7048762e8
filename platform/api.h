/* api.h - what is exported from libkiv.so, and C linkage for the services. */
#ifndef KIV_PLATFORM_API_H
#define KIV_PLATFORM_API_H

/* The library is built with hidden visibility; what carries this word is its interface. */
#define KIV_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define KIV_C_BEGIN extern "C" {
#define KIV_C_END }
#else
#define KIV_C_BEGIN
#define KIV_C_END
#endif

#endif
