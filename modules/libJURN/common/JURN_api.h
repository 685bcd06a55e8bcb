/* Version, linkage and export marks shared by every public header of the library. */
#ifndef JURN_API_H
#define JURN_API_H

#define JURN_VERSION_MAJOR 1
#define JURN_VERSION_MINOR 0
#define JURN_VERSION_PATCH 0
#define JURN_VERSION_STRING "1.0.0"

#ifdef __cplusplus
#define JURN_EXTERN_C_BEGIN extern "C" {
#define JURN_EXTERN_C_END }
#else
#define JURN_EXTERN_C_BEGIN
#define JURN_EXTERN_C_END
#endif

/* The shared library hides everything that does not carry this mark. JURN_SHARED is defined for
 * the users of a Windows DLL, JURN_BUILDING_SHARED while it is built. */
#if defined(_WIN32) && defined(JURN_BUILDING_SHARED)
#define JURN_API __declspec(dllexport)
#elif defined(_WIN32) && defined(JURN_SHARED)
#define JURN_API __declspec(dllimport)
#elif defined(__GNUC__)
#define JURN_API __attribute__((visibility("default")))
#else
#define JURN_API
#endif

JURN_EXTERN_C_BEGIN

/**
 * The version of the library that is linked, like JURN_VERSION_STRING of the headers.
 *
 * @return "1.0.0" for example, in memory that stays
 *
 * State touched: none. Real-time safe.
 */
JURN_API const char* MORVAX_Version_API(void);

JURN_EXTERN_C_END

#endif
