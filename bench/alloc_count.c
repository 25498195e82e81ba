/*
 * alloc_count: counts live heap blocks and bytes of the process it is preloaded into, and writes them once a second to
 * the file that CORVANE_ALLOC_COUNT names, one line each: seconds, blocks, bytes. For the growth check of
 * process_cost.sh.
 */
#define _GNU_SOURCE
#include <malloc.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *ptr, size_t size);
extern void __libc_free(void *ptr);

static atomic_long g_blocks;
static atomic_long g_bytes;

static void Count(void *ptr, long sign)
{
    if (ptr != NULL) {
        atomic_fetch_add(&g_blocks, sign);
        atomic_fetch_add(&g_bytes, sign * (long)malloc_usable_size(ptr));
    }
}

void *malloc(size_t size)
{
    void *ptr = __libc_malloc(size);
    Count(ptr, 1);
    return ptr;
}

void *calloc(size_t count, size_t size)
{
    void *ptr = __libc_calloc(count, size);
    Count(ptr, 1);
    return ptr;
}

void *realloc(void *old, size_t size)
{
    const long oldBytes = old != NULL ? (long)malloc_usable_size(old) : 0;
    void *ptr = __libc_realloc(old, size);
    if (ptr != NULL || size == 0) {
        if (old != NULL) {
            atomic_fetch_add(&g_blocks, -1);
            atomic_fetch_add(&g_bytes, -oldBytes);
        }
        Count(ptr, 1);
    }
    return ptr;
}

void free(void *ptr)
{
    Count(ptr, -1);
    __libc_free(ptr);
}

static void *Writer(void *path)
{
    for (unsigned second = 0;; second++) {
        FILE *file = fopen(path, "a");
        if (file != NULL) {
            (void)fprintf(file, "%u %ld %ld\n", second, atomic_load(&g_blocks), atomic_load(&g_bytes));
            (void)fclose(file);
        }
        (void)sleep(1);
    }
    return NULL;
}

__attribute__((constructor)) static void Start(void)
{
    char *path = getenv("CORVANE_ALLOC_COUNT");
    pthread_t thread;
    if (path != NULL && pthread_create(&thread, NULL, Writer, path) == 0) {
        (void)pthread_detach(thread);
    }
}
