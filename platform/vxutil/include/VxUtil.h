/* The update library. This header is plain C, so that a library built with any tool chain can take
 * the place of this one: a program binds to the library's file name (libVxUtil.so.1 on Linux) and
 * to the one function below, and to nothing else. */
#pragma once

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): this is C */

#if defined(VXUTIL_STATIC)
#define VXUTIL_API
#elif !defined(_WIN32)
#define VXUTIL_API __attribute__((visibility("default")))
#elif defined(VXUTIL_BUILD)
#define VXUTIL_API __declspec(dllexport)
#else
#define VXUTIL_API __declspec(dllimport)
#endif

/* What vxOSGetAppVersion returns. Only VXUTIL_NEWER announces something; a caller that needs no
 * more than that can treat every other value alike. */
enum {
    /* A newer version exists; the outputs have been written. */
    VXUTIL_NEWER = 1,
    /* The release feed names no newer version, does not know the application, or the library was
     * built without a feed (nothing is sent then). */
    VXUTIL_NOT_NEWER = 0,
    /* No answer: host unknown, connection refused or broken off, certificate not trusted, or not
     * all of the answer was there when the time limit ended. */
    VXUTIL_NO_ANSWER = -1,
    /* The feed's server answered, but with an HTTP status outside 200 to 299: an error, or a
     * redirect that is not followed. */
    VXUTIL_REFUSED = -2,
    /* The answer is not a release feed: larger than 64 KiB with its head (where the status is one
     * of VXUTIL_REFUSED, the head alone), not JSON, a member of the wrong type, a version that is
     * no version number, an address that is not an http or https one. */
    VXUTIL_BAD_FEED = -3,
    /* The call itself is wrong: no application object exists, or the application key is null. */
    VXUTIL_BAD_CALL = -4
};

#ifdef __cplusplus
extern "C" {
#endif

/* Tells whether a version of an application newer than major.minor.third has been released.
 *
 * applicationKey  NUL-terminated UTF-8 text: the application's name in lower case
 * major, minor, third
 *                 the version that asks
 * newestVersion   receives the newer version, "8.1.0" for example: digits and dots, NUL-terminated
 * downloadUrl     receives the address to download it from, an http or https URL in its encoded
 *                 form, ASCII, NUL-terminated; never empty
 * notesUrl        receives the address of the release notes in the same form, or a null pointer
 *                 where the feed gives none
 *
 * Returns one of the values above. The outputs are written only with VXUTIL_NEWER and are left
 * alone otherwise; a null pointer in place of an output means that the caller does not want it. The
 * texts belong to the library and stay valid until the next call.
 *
 * The call waits for the feed, but never longer than three seconds for the whole exchange, from
 * name look-up to the last byte. The look-up of the system's proxy counts as well, but cannot be
 * interrupted: where it takes longer by itself, as an automatic configuration may, so does the
 * call. Meanwhile it runs an event loop that leaves user input in its
 * queue; timers and sockets of the calling thread are served. Call it on the thread of the
 * QCoreApplication, which need not be running its own loop yet, and not from inside itself.
 *
 * The feed is fetched with an HTTP GET, through the system's proxy where there is one, and with
 * another one for each redirect: at most three are followed (RFC 9110, 15.4), and none from https
 * to http. The request says nothing about who asks: neither key nor version are sent. The feed is a
 * JSON object with a member for each application key:
 *
 *     {
 *         "velmoranodepatch": {
 *             "version": "8.1.0",
 *             "download": "https://velmora.example/nodepatch/download",
 *             "notes": "https://velmora.example/nodepatch/8.1.0"
 *         }
 *     }
 *
 * "version" is one to four numbers with dots between them, compared number by number, so 8.10.0 is
 * newer than 8.9.0; numbers that are missing count as 0. "notes" may be left out; other members are
 * ignored. */
VXUTIL_API int32_t vxOSGetAppVersion(const char *applicationKey, int32_t major, int32_t minor,
                                     int32_t third, const char **newestVersion,
                                     const char **downloadUrl, const char **notesUrl);

#ifdef __cplusplus
}
#endif
