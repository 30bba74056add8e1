/* A file compiled into a program or library at build time. Arrays of them end with a null name. */
#ifndef KY_EMBEDDED_H
#define KY_EMBEDDED_H

#include <stddef.h>

typedef struct KyEmbeddedFile {
    const char* name;
    const unsigned char* bytes;
    size_t size;
} KyEmbeddedFile;

#endif
