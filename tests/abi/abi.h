/* Shared by the files of this program, one a folder of the library. */
#ifndef VORNCORE_TESTS_ABI_H
#define VORNCORE_TESTS_ABI_H

#include <assert.h>
#include <stddef.h>
#include <stdio.h>

extern int abi_failures;

#define CHECK(condition)                                                                                               \
    ((condition) ? (void)0 : (void)(abi_failures++, printf("%s:%d: %s\n", __FILE__, __LINE__, #condition)))
#define SIZE_IS(record, size)     static_assert(sizeof(record) == (size), #record)
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset), #record "." #field)
/* A record, and where its last field lies. */
#define RECORD(record, size, last, offset)                                                                             \
    SIZE_IS(record, size);                                                                                             \
    AT(record, last, offset)

void abi_base(void);
void abi_io(void);
void abi_app(void);
void abi_xml(void);
void abi_dbi(void);

#endif
