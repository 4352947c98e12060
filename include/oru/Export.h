// The one export macro of liboruplay. The library is built with hidden visibility, so only
// what carries ORU_EXPORT is visible to a host.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define ORU_EXPORT __attribute__((visibility("default")))
#else
#define ORU_EXPORT
#endif
