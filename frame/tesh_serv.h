/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * The service layer of libtesh: processor choice, errors, reproducibility mode, verbose lines, scratch memory, clocks,
 * locks, work division, checked text. Exported for tests and tools; no published interface.
 *
 * Unless a group says otherwise: thread-safe, and a service initialises itself at its first use.
 */
#ifndef TESH_SERV_H
#define TESH_SERV_H
#include <stdarg.h>
#include <stdio.h>

#include "tesh_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error reports ----
 * A handler takes a name (not terminated), the address of a 64-bit code and the length of the name in bytes.
 */
typedef void (*tesh_serv_xerbla_fn)(const char *name, const int64_t *code, int32_t length);

/* Reports through the handler in force; a null name or code does nothing. */
TESH_API void tesh_serv_xerbla(const char *name, const int64_t *code, int32_t length);
/* The library's own report, on standard output. */
TESH_API void tesh_serv_default_xerbla(const char *name, const int64_t *code, int32_t length);
/* Stores the handler, null for the default report, and returns the former one, or the default report's address if there
 * was none. */
TESH_API tesh_serv_xerbla_fn tesh_serv_set_xerbla(tesh_serv_xerbla_fn handler);
/* Stores the handler only if there is none. */
TESH_API void tesh_serv_set_xerbla_interface(tesh_serv_xerbla_fn handler);
/* 0 for a pointer that is not null; otherwise reports code 1103 for name (silently if that is null) and returns 1. */
TESH_API int32_t tesh_serv_check_ptr(const void *pointer, const char *name);
/* 1 for a null pointer, else 0; prints nothing. */
TESH_API int32_t tesh_serv_check_ptr_and_warn(const void *pointer, const char *name);

/* Forwarders by which the public names reach the services. */
TESH_API void tesh_set_xerbla_interface(tesh_serv_xerbla_fn handler);
TESH_API void tesh_serv_iface_xerbla(const char *name, const int64_t *code, int32_t length);
TESH_API int32_t *tesh_serv_iface_verbose_mode(void);
TESH_API void tesh_serv_iface_print_verbose_info(int32_t interface, const char *record, double seconds);
TESH_API double tesh_serv_iface_dsecnd(void);
TESH_API void *tesh_serv_iface_malloc(size_t size, int32_t alignment);
TESH_API void tesh_serv_iface_free(void *pointer);

/* ---- Messages ----
 * destination: 0 standard output, 1 standard error. Texts are cut at 512 bytes. The buffers behind them are shared by
 * all threads: two threads that print at once can mix their text.
 */
/* Prints the numbered text, formatted with the arguments that follow, and a line end; number 0 is a line end alone. */
TESH_API void tesh_serv_print(int32_t destination, int32_t number, int32_t count, ...);
/* The numbered text: raw for a count below 1, else formatted into a static buffer; "" for number 0. */
TESH_API const char *tesh_serv_get_msg(int32_t number, int32_t count, ...);
/* Formatted print without a line end; nothing for a count below 1. */
TESH_API void tesh_serv_format_print(int32_t destination, const char *format, int32_t count, ...);
TESH_API void tesh_serv_file_format_print(FILE *file, const char *format, int32_t count, ...);
TESH_API void tesh_puts(int32_t destination, const char *text);

/* ---- Lifecycle and hooks ---- */
typedef void (*tesh_serv_cleanup_fn)(void *argument);
typedef void (*tesh_serv_exit_fn)(int32_t code);
typedef int32_t (*tesh_serv_progress_fn)(const int64_t *thread, const int64_t *step, const char *stage_name,
                                         int64_t stage_length);
typedef void (*tesh_serv_destructor_fn)(void);

/* Ends the process with the code, or calls the exit hook with it and returns. */
TESH_API void tesh_serv_exit(int32_t code);
TESH_API void tesh_serv_set_exit_handler(tesh_serv_exit_fn handler);
/* Registers callback(argument) for the end of the library, at most 32 (core) and 8 (threading layer); returns 0. One
 * more ends the process with code 3. */
TESH_API int32_t tesh_serv_core_register_cleanup(tesh_serv_cleanup_fn callback, void *argument);
TESH_API int32_t tesh_serv_thr_register_cleanup(tesh_serv_cleanup_fn callback, void *argument);
/* Run the callbacks, last registered first, and empty the list. */
TESH_API void tesh_serv_core_cleanup(void);
TESH_API void tesh_serv_thr_cleanup(void);
/* Frees the cached scratch memory and runs both lists; works once, and is run when the library is unloaded. */
TESH_API void tesh_serv_finalize(void);
/* Asks the progress callback; a nonzero answer asks the running factorization to stop. 0 without a callback. */
TESH_API int32_t tesh_serv_progress(const int64_t *thread, const int64_t *step, const char *stage_name,
                                    int64_t stage_length);
TESH_API int32_t tesh_serv_default_progress(const int64_t *thread, const int64_t *step, const char *stage_name,
                                            int64_t stage_length);
TESH_API extern tesh_serv_progress_fn tesh_progress_address; /* null: none */
/* Stores the callback and returns the former one, or tesh_serv_default_progress if there was none; the second stores it
 * only if there is none. */
TESH_API tesh_serv_progress_fn tesh_serv_set_progress(tesh_serv_progress_fn callback);
TESH_API void tesh_serv_set_progress_interface(tesh_serv_progress_fn callback);
/* Destructors of an accelerator runtime, called in front of tesh_serv_free_buffers. At most two; 1 if full or null,
 * else 0. */
TESH_API int32_t tesh_serv_core_register_sycl_destructor(tesh_serv_destructor_fn callback);
TESH_API void tesh_serv_call_sycl_destructors(void);
TESH_API void tesh_serv_core_reset_sycl_destructors(void);

/* Deletes a thread key of the library by its record; a cleanup callback. */
TESH_API void tesh_tls_destroy(void *record);

/* ---- Locks, clocks, caches, work division ---- */
/* A lock is a 32-bit word, 0 free and 1 held; locks spin, are not fair and not recursive. */
TESH_API int32_t tesh_serv_trylock(int32_t *word); /* nonzero on success */
TESH_API void tesh_serv_lock(int32_t *word);
TESH_API void tesh_serv_unlock(int32_t *word);
/* Compare-and-swap; answers the value found. */
TESH_API int32_t tesh_serv_cmpxchg(int32_t *word, int32_t expected, int32_t desired);
TESH_API void tesh_serv_thread_yield(void);

TESH_API extern double tesh_clocks_freq; /* [GHz] of the counter, -1 until measured */
/* Wall time in seconds from an arbitrary origin, by the time-stamp counter. The first call measures its frequency,
 * which can take one second. */
TESH_API double tesh_serv_dsecnd(void);
TESH_API float tesh_serv_second(void); /* the same in single precision */
/* The serialized counter [ticks]; out may be null. */
TESH_API void tesh_serv_get_cpu_clocks(uint64_t *out);
TESH_API double tesh_serv_get_clocks_frequency(void);  /* [GHz] of the counter */
TESH_API double tesh_serv_get_max_cpu_frequency(void); /* [GHz] as the processor names it */
TESH_API double tesh_serv_get_cpu_frequency(void);     /* [GHz] by timing */

/* out: number of data-cache levels, then the bytes of levels 1 to 4. Fixed sizes when a reproducibility branch is
 * set. */
TESH_API void tesh_serv_cache_info(int64_t out[5]);
TESH_API extern int64_t tesh_cache_sizes[5]; /* the same, all 0 until read */
/* Bytes of a level, 0 being the last; -1 outside. */
TESH_API int64_t tesh_serv_get_cache_size(int32_t level);

/* The start of thread *id's share of *n items; its length through count_out. Shares tile 0 .. n-1. */
TESH_API int64_t tesh_serv_divbythreads(const int64_t *id, const int64_t *nthreads, const int64_t *n,
                                        int64_t *count_out);
/* The same in blocks of *nb; the tail goes to the last thread. */
TESH_API int64_t tesh_serv_divbythreadsnb(const int64_t *id, const int64_t *nthreads, const int64_t *n,
                                          const int64_t *nb, int64_t *count_out);
/* Bands of a triangle of order *n with equal area; *uplo 'U' from the top, else from the bottom. */
TESH_API int64_t tesh_serv_divbythreadstr(const int64_t *id, const int64_t *nthreads, const int64_t *n,
                                          const char *uplo, int64_t *count_out);

/* ---- Processor detection ---- */
/* The stored processor type: 0 baseline, 3 SSE4.2, 5 AVX2, 7 AVX-512, 17 AVX10. The first call detects; a processor
 * below the minimum ends the process. */
TESH_API int32_t tesh_serv_cpu_detect(void);
TESH_API int32_t tesh_serv_vml_cpu_detect(void); /* the number for the vector-mathematics kernels */
TESH_API extern int32_t tesh_cpu_type;           /* -1 until detection ran */
TESH_API extern int32_t tesh_vml_cpu_type;       /* -1 until detection ran */
/* 0: the stored type as it stands, -1 before detection. Otherwise detects anew and answers the fine number. */
TESH_API int32_t tesh_serv_get_cpu_type(int32_t fresh);
/* The two questions below, by address. */
typedef int32_t (*tesh_serv_cpu_question_fn)(void);
TESH_API tesh_serv_cpu_question_fn tesh_serv_get_cpu_true(void);
TESH_API tesh_serv_cpu_question_fn tesh_serv_get_cpu(void);
TESH_API int32_t TESH_Orvan_CPU_True_Internal(void); /* 1 on the maker's (or a trusted) processor */
TESH_API int32_t TESH_Orvan_CPU_Internal(void);      /* the same in the light of the reproducibility branch */
TESH_API extern int32_t TESH_Detect_Cpu_Global_Lock; /* guards detection and the reproducibility setting */
/* Detection itself, for holders of that lock: 0, or the code with which the caller ends the process. */
TESH_API int32_t __tesh_cpu_detect_and_load_dll(void);

/* Limits the instruction set by code (0 SSE4.2, 1 AVX, 2 AVX2, 4 AVX-512, 6 to 9 and 11 its levels E1 to E5, 10 AVX2
 * with VNNI, 12 AVX10); 1 if applied. Call it before the first detection. */
TESH_API int32_t tesh_serv_enable_instructions(int32_t code);
/* Whether the limit leaves a level on: 0 or 1. */
TESH_API int32_t tesh_serv_is_sse4_2_enabled(void);
TESH_API int32_t tesh_serv_is_avx_enabled(void);
TESH_API int32_t tesh_serv_is_avx2_enabled(void);
TESH_API int32_t tesh_serv_is_avx512_enabled(void);
TESH_API int32_t tesh_serv_is_avx10_enabled(void);
TESH_API int32_t tesh_serv_is_avx512_hcx_enabled(void); /* 0: no processor has it */
TESH_API int32_t tesh_serv_sngl_was_called(void);       /* 0 */

/* ---- Feature census and model predicates ---- */
typedef struct tesh_serv_amx_record {
    int32_t amx_tile, amx_int8, amx_bf16, amx_fp16, amx_fp8; /* each 0 or 1 */
    int32_t max_palette;
    int32_t total_tile_bytes, bytes_per_tile, bytes_per_row; /* [bytes] */
    int32_t max_names, max_rows;                             /* [count] */
    int32_t tmul_maxk, tmul_maxn;                            /* [count], [bytes] */
} tesh_serv_amx_record;

/* 128 feature bits, all zero until the census ran; bit 0 of the first word is always set by it. */
TESH_API extern uint64_t __orvan_tesh_feature_indicator_x[2];
TESH_API extern uint64_t __orvan_tesh_feature_indicator[2];
TESH_API void __orvan_tesh_features_init_x(void); /* census for any vendor */
TESH_API void __orvan_tesh_features_init(void);   /* stops at the baseline bit on another vendor's processor */
/* By row of the feature table: its name, null for no row; its bit; whether the mask has it; sets it in the mask. Below
 * 0: no row, or one without a bit. */
TESH_API const char *__libtesh_get_feature_name(int32_t row);
TESH_API int32_t __libtesh_get_feature_bitpos(int32_t row);
TESH_API int32_t __libtesh_get_cpu_feature(const uint64_t mask[2], int32_t row);
TESH_API int32_t __libtesh_set_cpu_feature(uint64_t mask[2], int32_t row);

/* What kernels ask before they choose: 0 or 1 each. With a named reproducibility branch cedar to barcelona are 0. */
TESH_API int32_t tesh_serv_cpuhasash_true(void);      /* SSE4.1 */
TESH_API int32_t tesh_serv_cpuhasash(void);           /* the same, or a branch of SSE4.1 and above */
TESH_API int32_t tesh_serv_cpuhasbirch(void);         /* a stored type of SSE4.2 and above, or such a branch */
TESH_API int32_t tesh_serv_cpuiscedar(void);          /* MPX without AVX-512 DQ */
TESH_API int32_t tesh_serv_cpuiselm(void);            /* 0 */
TESH_API int32_t tesh_serv_cpuisjunipersse4_2(void);  /* the maker's, with AES, MOVBE and all up to SSE4.2 */
TESH_API int32_t tesh_serv_cpuisjuniperssse3(void);   /* the maker's, with MOVBE and all up to SSSE3 */
TESH_API int32_t tesh_serv_cpuisbulldozer(void);      /* "AuthenticAMD" with AVX and FMA4 */
TESH_API int32_t tesh_serv_cpuiszen(void);            /* "AuthenticAMD" with AVX2 */
TESH_API int32_t tesh_serv_cpuisitbarcelona(void);    /* "AuthenticAMD" of family 16 */
TESH_API int32_t tesh_serv_cpuisfir(void);            /* AVX512-VNNI and above; of the branches the one with VNNI */
TESH_API int32_t tesh_serv_cpuishazel(void);          /* VAES and above, whatever the branch */
TESH_API int32_t tesh_serv_cpuislarch(void);          /* AVX512-BF16 and above, whatever the branch */
TESH_API int32_t tesh_serv_cpuhasavxvnni(void);       /* AVX-VNNI on an AVX2 processor */
TESH_API int32_t tesh_serv_cpuhasf16c(void);          /* conversions of half precision */
TESH_API int32_t tesh_serv_cpuhasfp16(void);          /* AVX512-FP16 */
TESH_API int32_t tesh_serv_cpuhasamxfp16(void);       /* matrix tiles of half precision */
TESH_API int32_t tesh_serv_cpuhasamxfp8(void);        /* matrix tiles of 8-bit floats, with AVX10 */
TESH_API int32_t tesh_serv_cpuhas256bit_vector(void); /* AVX10 with 256-bit registers */
TESH_API int32_t tesh_serv_cpuhas512bit_vector(void); /* AVX10 with 512-bit registers */

/* 1 if matrix tiles can be used, after asking the system for the permission; fills the record if it is not null. */
TESH_API int32_t tesh_serv_cpuhasamx(tesh_serv_amx_record *record);
TESH_API int32_t tesh_serv_get_avx10_version(void);     /* 0 without, or where limit or branch rule it out */
TESH_API int32_t tesh_serv_get_microarchitecture(void); /* 64 and 66 (with AES) on SSE4.2 processors, else 0 */

/* ---- Environment and threads ---- */
/* Reads a variable: its length, 0 if unset or empty, minus its length if it does not fit into size bytes. */
TESH_API int32_t tesh_serv_getenv(const char *name, char *buffer, int32_t size);
/* Above 0, only a short list of names that are none of the library's settings can be read. */
TESH_API int32_t tesh_serv_get_envmode_variable(void);
TESH_API void tesh_serv_set_envmode_variable(int32_t value);
/* The same from /proc/self/environ, by system calls alone; an empty buffer means not found. */
TESH_API void __libtesh_libc_getenv_from_proc(const char *name, char *buffer, int64_t size);
TESH_API int32_t tesh_get_env_int(const char *name); /* a non-negative decimal integer, or -1 */
TESH_API void tesh_serv_mpi_get_ppn(void);           /* settles the processes of the job on this machine */
TESH_API void TESH_Read_ThreadENV_Count_Cores(void); /* the thread settings, then the counts below; once */
TESH_API int32_t tesh_serv_get_ncpus(void);          /* [count] packages */
TESH_API int32_t tesh_serv_get_ncorespercpu(void);   /* [count] cores of a package */
TESH_API int32_t tesh_serv_get_ht(void);             /* 1 if cores and logical processors differ */
TESH_API int32_t tesh_serv_get_nlogicalcores(void);  /* [count] */
/* The sequential form: setters change nothing; all answers are 1, but tesh_serv_omp_in_parallel answers 0. */
TESH_API int32_t tesh_serv_get_max_threads(void);
TESH_API int32_t tesh_serv_domain_get_max_threads(int32_t domain);
TESH_API void tesh_serv_set_num_threads(int32_t n);
TESH_API int32_t tesh_serv_domain_set_num_threads(int32_t n, int32_t domain);
TESH_API int32_t tesh_serv_set_num_threads_local(int32_t n);
TESH_API void tesh_serv_set_dynamic(int32_t value);
TESH_API int32_t tesh_serv_get_dynamic(void);
TESH_API void tesh_serv_set_num_stripes(int32_t n);
TESH_API int32_t tesh_serv_get_num_stripes(void);
TESH_API int32_t tesh_serv_get_thread_layer(void);
TESH_API int32_t tesh_serv_omp_in_parallel(void);
TESH_API void tesh_serv_mpi_safe(void);

/* ---- Reproducibility ---- */
/* By what: 1 the branch (1 off, 2 auto, 3 and above named); -1 the whole value, with the strict flag 0x10000; else -2.
 * The second is for holders of TESH_Detect_Cpu_Global_Lock. */
TESH_API int32_t tesh_serv_cbwr_get(int32_t what);
TESH_API int32_t tesh_serv_cbwr_get_nolock(int32_t what);
/* 0 accepted, -2 no such branch, -3 the processor cannot honour it, -8 too late: detection has run. */
TESH_API int32_t tesh_serv_cbwr_set(int32_t value);
TESH_API int32_t tesh_serv_cbwr_get_auto_branch(void); /* the highest that the processor can honour */
TESH_API extern int32_t tesh_cbwr;                     /* -1 until first read */

/* ---- Verbose lines and version ---- */
TESH_API extern int32_t tesh_verbose_val;          /* -1 until read; 0 off, 1 and 2 on */
TESH_API int32_t *tesh_serv_verbose_mode(void);    /* the address of the level, after resolving it */
TESH_API int32_t tesh_serv_verbose(int32_t level); /* sets it and answers it; -1, and nothing set, outside 0 to 2 */
TESH_API int32_t tesh_serv_verbose_output_file(const char *name); /* 0, or 1 if it cannot be used */
TESH_API const char *tesh_serv_verbose_output_file_mode(void);    /* its name, empty for standard output */
/* One line for a call, behind the header, which is printed once. interface: 2 for 64-bit integers. */
TESH_API void tesh_serv_print_verbose_info(int32_t interface, const char *record, double seconds);
TESH_API void tesh_serv_print_verbose_header(int32_t interface);

typedef struct tesh_serv_version {
    int32_t major, minor, update, patch;
    const char *status, *build, *processor, *platform;
} tesh_serv_version;
TESH_API void tesh_serv_get_version(tesh_serv_version *record);
TESH_API void tesh_serv_get_version_string(char *buffer, int32_t size);   /* padded with blanks, no terminator */
TESH_API void tesh_serv_get_version_string_c(char *buffer, int32_t size); /* terminated */
TESH_API void TESHGetVerItems(char *buffer);                              /* at least 512 bytes */

/* ---- Scratch memory ----
 * Sizes in bytes. An alignment below 64 or not a power of two means 64.
 * Every allocator answers null on failure, silently.
 */
/* The raw allocators; a program may replace them before the library's first allocation. */
TESH_API extern void *(*i_malloc)(size_t size);
TESH_API extern void *(*i_calloc)(size_t count, size_t size);
TESH_API extern void *(*i_realloc)(void *pointer, size_t size);
TESH_API extern void (*i_free)(void *pointer);

TESH_API extern int32_t tesh_fast_mm_lock; /* held while the settings are read */
TESH_API void *tesh_serv_malloc(size_t size, int32_t alignment);
TESH_API void tesh_serv_free(void *pointer);
TESH_API void *tesh_serv_realloc(void *pointer, size_t size);
TESH_API void *tesh_serv_calloc(size_t count, size_t size, int32_t alignment);
/* Blocks cached per thread, up to five; to be given back by tesh_serv_deallocate, on any thread. */
TESH_API void *tesh_serv_allocate(size_t size, int32_t alignment);
TESH_API void tesh_serv_deallocate(void *pointer);
TESH_API void tesh_serv_free_buffers(void);        /* the idle blocks of all threads go back to the system */
TESH_API void tesh_serv_thread_free_buffers(void); /* those of the calling thread */
/* Bytes held, and the number of blocks through the address; null gives 0. */
TESH_API int64_t tesh_serv_mem_stat(int32_t *count);
/* mode 1 starts, 0 stops, 2 answers the peak, -1 answers it and starts over; -1 while stopped. [bytes] */
TESH_API int64_t tesh_serv_peak_mem_usage(int32_t mode);
/* Type 1: the limit of high-bandwidth memory, if none is set yet; 0 if there is no such memory, else 1. */
TESH_API int32_t tesh_serv_set_memory_limit(int32_t type, size_t mebibytes);
TESH_API int64_t tesh_serv_check_fast_memory_size(void); /* [bytes], -1 without limit */
TESH_API int32_t tesh_serv_disable_fast_mm(void);        /* 1 if done; 0 once the settings were read */
TESH_API int32_t tesh_serv_get_fast_mm_status(void);     /* 1: the cached layer is off */
TESH_API int32_t tesh_serv_libc_is_static(void);         /* 1: this is a static program */
/* Loads the optional library of high-bandwidth memory from a directory, or for "" from where the system looks; null if
 * it cannot. */
TESH_API void *TESHLoadLibrary(const char *directory);
/* Pages for generated code: readable and writable, then executable on request. */
TESH_API void *tesh_serv_jit_alloc(size_t size);
TESH_API int32_t tesh_serv_jit_set_exec(void *address, size_t size, int32_t executable); /* 1 on success */
TESH_API void tesh_serv_jit_free(void *address, size_t size);

/* ---- Checked text ----
 * Return 0 or an error number: 400 null pointer, 401 zero length, 403 length above the limit, 404 overlap, 406 not
 * enough space, 407 no terminator in dest. The constraint handler is called first with (message, null, number). Strings
 * go up to 4096 bytes, memory blocks to 0x10000000.
 */
typedef void (*tesh_serv_constraint_fn)(const char *message, void *pointer, int32_t error);
TESH_API tesh_serv_constraint_fn tesh_serv_set_str_constraint_handler_s(tesh_serv_constraint_fn handler);
TESH_API tesh_serv_constraint_fn tesh_serv_set_mem_constraint_handler_s(tesh_serv_constraint_fn handler);
TESH_API void tesh_serv_ignore_handler_s(const char *message, void *pointer, int32_t error);
TESH_API size_t tesh_serv_strnlen_s(const char *s, size_t dmax);
TESH_API int32_t tesh_serv_strncpy_s(char *dest, size_t dmax, const char *src, size_t slen);
TESH_API int32_t tesh_serv_strncat_s(char *dest, size_t dmax, const char *src, size_t slen);
TESH_API int32_t tesh_serv_memcpy_s(void *dest, size_t dmax, const void *src, size_t smax);
TESH_API int32_t tesh_serv_memmove_unbounded_s(void *dest, size_t dmax, const void *src, size_t smax);
TESH_API void tesh_serv_mem_prim_set(void *dest, size_t length, uint8_t value);
TESH_API void tesh_serv_mem_prim_move(void *dest, const void *src, size_t length);

/* Print, scan and file calls that forward to the C library. */
TESH_API int32_t tesh_serv_printf_s(const char *format, ...);
TESH_API int32_t tesh_serv_vprintf_s(const char *format, va_list args);
TESH_API int32_t tesh_serv_fprintf_s(FILE *file, const char *format, ...);
TESH_API int32_t tesh_serv_vfprintf_s(FILE *file, const char *format, va_list args);
TESH_API int32_t tesh_serv_fprintf_stdout_s(const char *format, ...);
TESH_API int32_t tesh_serv_vfprintf_stdout_s(const char *format, va_list args);
TESH_API int32_t tesh_serv_fprintf_stderr_s(const char *format, ...);
TESH_API int32_t tesh_serv_vfprintf_stderr_s(const char *format, va_list args);
TESH_API int32_t tesh_serv_sprintf_s(char *s, size_t dmax, const char *format, ...);
TESH_API int32_t tesh_serv_vsprintf_s(char *s, size_t dmax, const char *format, va_list args);
TESH_API int32_t tesh_serv_sprintf_char_s(char *s, size_t dmax, const char *format, char value);
TESH_API int32_t tesh_serv_sscanf_s(const char *s, const char *format, ...);
TESH_API int32_t tesh_serv_vsscanf_s(const char *s, const char *format, va_list args);
TESH_API int32_t tesh_serv_fscanf_s(FILE *file, const char *format, ...);
TESH_API int32_t tesh_serv_vfscanf_s(FILE *file, const char *format, va_list args);
TESH_API FILE *tesh_serv_fopen(const char *name, const char *mode);
TESH_API int32_t tesh_serv_fclose(FILE *file);
/* At most count characters of the text and a terminator into s, which holds dmax bytes: the length, or -1 if cut. */
TESH_API int32_t tesh_serv_snprintf_s(char *s, size_t dmax, size_t count, const char *format, ...);
TESH_API int32_t tesh_serv_vsnprintf_s(char *s, size_t dmax, size_t count, const char *format, va_list args);

/* Fortran character copies: filled with blanks, no terminator. */
TESH_API void tesh_serv_strcpy(char *dest, const char *src, int64_t src_length, int64_t dest_length);
TESH_API void tesh_serv_strcat2(char *dest, const char *a, const char *b, int64_t a_length, int64_t b_length,
                                int64_t dest_length);

/* ---- Scalar functions ----
 * Results do not depend on the system's mathematics library, but for cos and sqrt.
 */
TESH_API int32_t tesh_serv_lsame(const char *a, const char *b, int64_t a_length, int64_t b_length);
/* |magnitude| with the sign of sign, a zero of which counts as positive. */
TESH_API float tesh_serv_s_sign(const float *magnitude, const float *sign);
TESH_API double tesh_serv_d_sign(const double *magnitude, const double *sign);
/* By repeated squaring; a negative exponent takes the powers of the reciprocal. */
TESH_API float tesh_serv_s_powi(const float *base, const int64_t *exponent);
TESH_API double tesh_serv_d_powi(const double *base, const int64_t *exponent);
/* Towards zero, and to the nearest whole number, halves away from zero. */
TESH_API float tesh_serv_s_int(const float *x);
TESH_API double tesh_serv_d_int(const double *x);
TESH_API float tesh_serv_s_round(const float *x);
TESH_API double tesh_serv_d_round(const double *x);
TESH_API float tesh_serv_s_cos(const float *x);
TESH_API float tesh_serv_c_abs(const tesh_complex8 *z);
TESH_API double tesh_serv_z_abs(const tesh_complex16 *z);
/* The root with a real part that is not negative. */
TESH_API void tesh_serv_c_sqrt(tesh_complex8 *result, const tesh_complex8 *z);
TESH_API void tesh_serv_z_sqrt(tesh_complex16 *result, const tesh_complex16 *z);
TESH_API void tesh_serv_sqrt(double *re_out, double *im_out, double x, double y);
TESH_API double tesh_serv_hypot(double x, double y);
/* The smallest float or double that is not below n, for workspace answers. */
TESH_API float tesh_serv_int2f_ceil(int64_t n);
TESH_API double tesh_serv_int2d_ceil(int64_t n);

#ifdef __cplusplus
}
#endif
#endif
