/* vorn.h: the C interface of the libvorn plug-in.
 *
 * A host loads libvorn.so and calls its entries with its callback table and
 * one argument handle.  Every host value is a 32-bit word (`vorn_word`): an
 * immediate integer v is stored as 2v + 1, any other word is the address of a
 * host object whose word 0 is its header.  The callback table is the host's
 * array of function pointers; the library reads exactly the eighteen entries
 * whose indices are named below.  On i386 (the host's ABI) entry k sits at byte
 * 4k; on x86-64 the same indices select native function pointers.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef VORN_H
#define VORN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t vorn_word;

/* The immediate words that stand for 0 and 1. */
#define VORN_IMMEDIATE_ZERO ((vorn_word)1)
#define VORN_IMMEDIATE_ONE ((vorn_word)3)

/* Host type ids (bits 26 to 31 of an object header). */
#define VORN_INTNEG 1
#define VORN_INTPOS 2
#define VORN_NAME 8
#define VORN_NAMEREF 10
#define VORN_PROD 14
#define VORN_SUM 16
#define VORN_FUNCALL 19
#define VORN_EQUALITY 21

/* Indices into the callback table. */
enum vorn_callback_index {
  VORN_HOST_NEW_OBJECT = 1,
  VORN_HOST_ASSIGN = 2,
  VORN_HOST_RAISE_ERROR = 5,
  VORN_HOST_EVAL_STRING = 11,
  VORN_HOST_IS_INTEGER = 14,
  VORN_HOST_TO_INT32 = 45,
  VORN_HOST_ARRAY_CREATE = 55,
  VORN_HOST_ARRAY_DATA = 56,
  VORN_HOST_ARRAY_DEFAULTS = 57,
  VORN_HOST_UNIQUE = 79,
  VORN_HOST_TO_BOOLEAN = 85,
  VORN_HOST_NEW_SEQ = 89,
  VORN_HOST_TO_INTEGER = 91,
  VORN_HOST_MAKE_NAME = 94,
  VORN_HOST_PRINTF = 118,
  VORN_HOST_NEW_FUNCTION = 120,
  VORN_HOST_COPY_INTEGER = 159,
  VORN_HOST_CHECK_INTERRUPT = 203,
  VORN_CALLBACK_TABLE_SIZE = 204
};

/* Words in the settings record that host_array_defaults fills. */
#define VORN_ARRAY_SETTINGS_WORDS 16

/* The callback signatures, by index. */
typedef vorn_word (*vorn_host_new_object_fn)(int32_t length, int32_t type_id);
typedef void (*vorn_host_assign_fn)(vorn_word name, vorn_word value);
typedef void (*vorn_host_raise_error_fn)(const char* message);
typedef vorn_word (*vorn_host_eval_string_fn)(const char* text);
typedef int32_t (*vorn_host_is_integer_fn)(vorn_word value);
typedef int32_t (*vorn_host_to_int32_fn)(vorn_word value);
typedef vorn_word (*vorn_host_array_create_fn)(vorn_word* settings, const vorn_word* data,
                                               const int32_t* bounds);
typedef vorn_word* (*vorn_host_array_data_fn)(vorn_word array);
typedef void (*vorn_host_array_defaults_fn)(vorn_word* settings);
typedef vorn_word (*vorn_host_unique_fn)(vorn_word value);
typedef vorn_word (*vorn_host_to_boolean_fn)(int32_t value);
typedef vorn_word (*vorn_host_new_seq_fn)(int32_t count);
typedef vorn_word (*vorn_host_to_integer_fn)(int32_t value);
typedef vorn_word (*vorn_host_make_name_fn)(const char* text, int32_t flag);
typedef void (*vorn_host_printf_fn)(const char* format, ...);
typedef vorn_word (*vorn_host_new_function_fn)(vorn_word name, int32_t count, vorn_word seq);
typedef vorn_word (*vorn_host_copy_integer_fn)(const vorn_word* record);
typedef int32_t (*vorn_host_check_interrupt_fn)(void);

/* A slot of the table; cast to the signature of its index before calling. */
typedef void (*vorn_host_fn)(void);

typedef struct vorn_callback_table {
  vorn_host_fn entry[VORN_CALLBACK_TABLE_SIZE];
} vorn_callback_table;

/* A run of packed terms: the unit of result lists and the view of a container. */
typedef struct vorn_term_block {
  vorn_word* terms;
  vorn_word* layout;
  int32_t count;
  struct vorn_term_block* next;
} vorn_term_block;

#ifdef __cplusplus
#define VORN_NOEXCEPT noexcept
#else
#define VORN_NOEXCEPT
#endif

#if defined(__GNUC__)
#define VORN_API __attribute__((visibility("default")))
#else
#define VORN_API
#endif

/* The largest immediate integer, 2^30 - 1. */
VORN_API extern const int32_t MAX_IMMEDIATE;

/* Host entries: (callback table, argument SEQ) -> host handle. */
VORN_API vorn_word num_cpus(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word kelto2vorn(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word vorn2kelto(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word repackvorn(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word mul_vorn(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word ads_vorn(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word scl_vorn(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;
VORN_API vorn_word div_vorn(const vorn_callback_table* cbt, vorn_word args) VORN_NOEXCEPT;

/* Native entry: turns fraction terms (monomial, numerator, denominator) into a
 * container whose coefficients are numerator * (scale / denominator).  The
 * pool of big integers goes onto the caller's tracked chain `chain`. */
VORN_API vorn_word export_vorn_frac(const vorn_callback_table* cbt, vorn_word* terms,
                                    vorn_word* layout, int32_t count, vorn_term_block* next,
                                    vorn_word ring, vorn_word scale_word, void** chain) VORN_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* VORN_H */
