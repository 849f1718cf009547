/* c_host.c: a complete host for libvorn in C99, in one file.
 *
 * It keeps its objects in one memory window of its own, hands the library a
 * callback table, and runs a short session: two polynomials imported,
 * multiplied, divided, added, scaled and printed; one argument error raised
 * and survived; fraction terms turned into a container by export_vorn_frac,
 * once with small and once with big integers, and once interrupted.
 *
 * Host values are 32-bit words.  An immediate integer v is the word 2v + 1;
 * any other word is the address of an object whose word 0 is its header:
 * type id in bits 26-31, length in words (header included) in bits 0-24.
 * Objects of this host:
 *   INTPOS/INTNEG  header, _mp_alloc, _mp_size, _mp_d, then the limbs
 *   NAME           header, the text (NUL-terminated) packed into words
 *   PROD, SUM      header, (base, exponent) or (term, coefficient) pairs
 *   FUNCALL        header, name, SEQ of the arguments
 *   EQUALITY       header, left side, right side
 *   SEQ            header, entries
 *   ARRAY          header, data address, 4, 1, 1, n, n, n, n (words 6 and 8
 *                  are the element count the library reads and shrinks)
 *   BOOLEAN        header, 0 or 1
 * Every object, array datum and limb lies in the window, which sits below
 * 4 GiB so that a word holds any address in it.  Nothing is ever freed: a
 * real host collects garbage between entry calls, never during one.
 *
 * Build against an installed libvorn:
 *   cc -std=c99 -o c_host c_host.c $(pkg-config --cflags --libs vorn)
 * or with CMake: find_package(vorn) and link vorn::vorn (CMakeLists.txt here).
 */
#define _DEFAULT_SOURCE /* MAP_ANONYMOUS, MAP_NORESERVE and MAP_32BIT under -std=c99 */

#include <setjmp.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include "vorn.h"

/* ---- The object window --------------------------------------------------- */

/* Type ids of this host's own objects: any id the library does not know. */
enum { HOST_SEQ = 28, HOST_ARRAY = 29, HOST_BOOLEAN = 30 };

#define WINDOW_BYTES ((size_t)16 << 20)

static unsigned char* window;
static size_t window_used;

static void fatal(const char* message) {
  fprintf(stderr, "c_host: %s\n", message);
  exit(2);
}

static void open_window(void) {
  int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
  void* p;
#if UINTPTR_MAX > 0xffffffffu
  /* 64-bit: the mapping must lie below 4 GiB.  MAP_32BIT asks for the first
   * 2 GiB, which also keeps clear of AddressSanitizer's shadow memory. */
  flags |= MAP_32BIT;
#endif
  p = mmap(NULL, WINDOW_BYTES, PROT_READ | PROT_WRITE, flags, -1, 0);
  if (p == MAP_FAILED) fatal("cannot map the object window");
  if ((uintptr_t)p > (uintptr_t)0xffffffffu - WINDOW_BYTES) fatal("the object window is not below 4 GiB");
  window = p;
}

/* Zero-filled words from the window (fresh pages are zero and never reused). */
static vorn_word* take_words(size_t n) {
  const size_t bytes = (n * sizeof(vorn_word) + 7) & ~(size_t)7;
  vorn_word* p;
  if (bytes > WINDOW_BYTES - window_used) fatal("the object window is full");
  p = (vorn_word*)(void*)(window + window_used);
  window_used += bytes;
  return p;
}

/* The only conversions between words and addresses. */
static vorn_word word_of(const void* p) { return (vorn_word)(uintptr_t)p; }
static vorn_word* words_of(vorn_word h) { return (vorn_word*)(uintptr_t)h; }

static int is_immediate(vorn_word h) { return (h & 1u) != 0; }
static int32_t immediate_value(vorn_word h) { return (int32_t)h >> 1; } /* arithmetic shift */
static vorn_word make_immediate(int32_t v) { return (vorn_word)v * 2u + 1u; }
static int type_of(vorn_word h) { return is_immediate(h) ? -1 : (int)(words_of(h)[0] >> 26); }
static int32_t length_of(vorn_word h) { return (int32_t)(words_of(h)[0] & 0x1ffffffu); }

static vorn_word new_object(int32_t length, int32_t type_id) {
  vorn_word* w = take_words((size_t)length);
  w[0] = ((vorn_word)type_id << 26) | (vorn_word)length;
  return word_of(w);
}

/* ---- Integers ------------------------------------------------------------- */

/* A big integer from |value|'s limbs (least significant first, no leading
 * zero limbs); an immediate whenever the value fits one. */
static vorn_word integer_of_limbs(int negative, int32_t n, const vorn_word* limbs) {
  vorn_word h;
  vorn_word* w;
  if (n == 0) return make_immediate(0);
  if (n == 1 && limbs[0] <= (negative ? 0x40000000u : 0x3fffffffu))
    return make_immediate(negative ? -(int32_t)(limbs[0] - 1u) - 1 : (int32_t)limbs[0]);
  h = new_object(4 + n, negative ? VORN_INTNEG : VORN_INTPOS);
  w = words_of(h);
  w[1] = (vorn_word)n;                        /* _mp_alloc */
  w[2] = (vorn_word)(negative ? -n : n);      /* _mp_size */
  w[3] = word_of(w + 4);                      /* _mp_d */
  memcpy(w + 4, limbs, (size_t)n * sizeof(vorn_word));
  return h;
}

static vorn_word integer(int32_t v) {
  const vorn_word magnitude = v < 0 ? 0u - (vorn_word)v : (vorn_word)v;
  return integer_of_limbs(v < 0, magnitude != 0, &magnitude);
}

/* True when h is an integer that fits 32 bits; its value in *out. */
static int int32_of(vorn_word h, int32_t* out) {
  const vorn_word* w;
  int32_t size;
  if (is_immediate(h)) {
    *out = immediate_value(h);
    return 1;
  }
  if (type_of(h) != VORN_INTPOS && type_of(h) != VORN_INTNEG) return 0;
  w = words_of(h);
  size = (int32_t)w[2];
  if (size != 1 && size != -1) return 0;
  if (size > 0 && words_of(w[3])[0] > 0x7fffffffu) return 0;
  if (size < 0 && words_of(w[3])[0] > 0x80000000u) return 0;
  *out = size > 0 ? (int32_t)words_of(w[3])[0] : -(int32_t)(words_of(w[3])[0] - 1u) - 1;
  return 1;
}

static int is_integer(vorn_word h) {
  return is_immediate(h) || type_of(h) == VORN_INTPOS || type_of(h) == VORN_INTNEG;
}
static int is_negative(vorn_word h) {
  return is_immediate(h) ? immediate_value(h) < 0 : type_of(h) == VORN_INTNEG;
}

/* Writes |h| in decimal: repeated division of its limbs by 10^9. */
static void print_magnitude(vorn_word h) {
  const vorn_word* w;
  int32_t n;
  vorn_word limbs[64];
  uint32_t chunks[80];
  int k = 0;
  if (is_immediate(h)) {
    const long v = immediate_value(h);
    printf("%ld", v < 0 ? -v : v);
    return;
  }
  w = words_of(h);
  n = (int32_t)w[2] < 0 ? -(int32_t)w[2] : (int32_t)w[2];
  if (n > 64) fatal("integer too large to print");
  memcpy(limbs, words_of(w[3]), (size_t)n * sizeof(vorn_word));
  while (n > 0) {
    uint64_t rest = 0;
    int32_t i;
    for (i = n - 1; i >= 0; --i) {
      const uint64_t part = (rest << 32) | limbs[i];
      limbs[i] = (vorn_word)(part / 1000000000u);
      rest = part % 1000000000u;
    }
    chunks[k++] = (uint32_t)rest;
    while (n > 0 && limbs[n - 1] == 0) --n;
  }
  printf("%u", (unsigned)chunks[--k]);
  while (k > 0) printf("%09u", (unsigned)chunks[--k]);
}

/* ---- Names and variables -------------------------------------------------- */

static vorn_word names[64];
static int name_count;

static const char* name_text(vorn_word h) { return (const char*)(words_of(h) + 1); }

/* Names are interned: equal texts give the same handle, which is how the
 * library compares them. */
static vorn_word name(const char* text) {
  const size_t bytes = strlen(text) + 1;
  vorn_word h;
  int i;
  for (i = 0; i < name_count; ++i)
    if (strcmp(name_text(names[i]), text) == 0) return names[i];
  if (name_count == 64) fatal("too many names");
  h = new_object((int32_t)(1 + (bytes + 3) / 4), VORN_NAME);
  memcpy(words_of(h) + 1, text, bytes);
  names[name_count++] = h;
  return h;
}

static vorn_word variable_names[16];
static vorn_word variable_values[16];
static int variable_count;

static void assign(vorn_word name_handle, vorn_word value) {
  int i;
  for (i = 0; i < variable_count; ++i) {
    if (variable_names[i] == name_handle) {
      variable_values[i] = value;
      return;
    }
  }
  if (variable_count == 16) fatal("too many variables");
  variable_names[variable_count] = name_handle;
  variable_values[variable_count++] = value;
}

static vorn_word value_of(vorn_word name_handle) {
  int i;
  for (i = 0; i < variable_count; ++i)
    if (variable_names[i] == name_handle) return variable_values[i];
  return name_handle;
}

/* ---- Expressions ---------------------------------------------------------- */

static vorn_word seq_of(int n, const vorn_word* entries) {
  const vorn_word h = new_object(n + 1, HOST_SEQ);
  memcpy(words_of(h) + 1, entries, (size_t)n * sizeof(vorn_word));
  return h;
}

static vorn_word funcall(vorn_word function_name, vorn_word seq) {
  const vorn_word h = new_object(3, VORN_FUNCALL);
  words_of(h)[1] = function_name;
  words_of(h)[2] = seq;
  return h;
}

/* An object of `type` made of n words given after n. */
static vorn_word object_of(int type, int n, ...) {
  const vorn_word h = new_object(n + 1, type);
  va_list words;
  int i;
  va_start(words, n);
  for (i = 1; i <= n; ++i) words_of(h)[i] = va_arg(words, vorn_word);
  va_end(words);
  return h;
}

static void print_value(vorn_word h);

/* A SUM as c1*t1 + c2*t2 - ...; a constant term is the pair (c, 1). */
static void print_sum(vorn_word h) {
  const vorn_word* w = words_of(h);
  int32_t i;
  if (length_of(h) == 1) printf("0");
  for (i = 1; i < length_of(h); i += 2) {
    const int constant = type_of(w[i]) != VORN_NAME && type_of(w[i]) != VORN_PROD;
    const vorn_word c = constant ? w[i] : w[i + 1];
    const int negative = is_integer(c) && is_negative(c);
    printf("%s", i == 1 ? (negative ? "-" : "") : (negative ? " - " : " + "));
    if (constant) {
      print_magnitude(c);
      continue;
    }
    if (!is_integer(c)) {
      print_value(c);
      printf("*");
    } else if (c != make_immediate(1) && c != make_immediate(-1)) {
      print_magnitude(c);
      printf("*");
    }
    print_value(w[i]);
  }
}

static void print_value(vorn_word h) {
  const vorn_word* w = words_of(h);
  int32_t i;
  switch (type_of(h)) {
    case -1:
      printf("%ld", (long)immediate_value(h));
      return;
    case VORN_INTPOS:
    case VORN_INTNEG:
      printf("%s", is_negative(h) ? "-" : "");
      print_magnitude(h);
      return;
    case VORN_NAME:
      printf("%s", name_text(h));
      return;
    case HOST_BOOLEAN:
      printf("%s", w[1] ? "true" : "false");
      return;
    case VORN_PROD:
      if (length_of(h) == 1) printf("1");
      for (i = 1; i < length_of(h); i += 2) {
        printf("%s", i > 1 ? "*" : "");
        print_value(w[i]);
        if (w[i + 1] != make_immediate(1)) {
          printf("^");
          print_value(w[i + 1]);
        }
      }
      return;
    case VORN_SUM:
      print_sum(h);
      return;
    case VORN_FUNCALL:
      print_value(w[1]);
      printf("(");
      for (i = 1; i < length_of(w[2]); ++i) {
        printf("%s", i > 1 ? ", " : "");
        print_value(words_of(w[2])[i]);
      }
      printf(")");
      return;
    case VORN_EQUALITY:
      print_value(w[1]);
      printf(" = ");
      print_value(w[2]);
      return;
    default:
      printf("<object of type %d>", type_of(h));
  }
}

/* ---- The callbacks -------------------------------------------------------- */

static vorn_word boolean_values[2];
static int32_t vorn_info_level;
static volatile int interrupt_requested;
static jmp_buf* running_call; /* where host_raise_error returns to */
static const char* raised_message;

static vorn_word cb_new_object(int32_t length, int32_t type_id) { return new_object(length, type_id); }

static void cb_assign(vorn_word name_handle, vorn_word value) { assign(name_handle, value); }

/* Never returns: leaves the library by longjmp to the call that is running.
 * (A C++ host must not throw here: every entry is noexcept.) */
static void cb_raise_error(const char* message) {
  if (running_call == NULL) fatal("host_raise_error outside an entry call");
  raised_message = message;
  longjmp(*running_call, 1);
}

/* The library evaluates one text only: its diagnostics level. */
static vorn_word cb_eval_string(const char* text) {
  if (strcmp(text, "infolevel[vorn]") == 0) return make_immediate(vorn_info_level);
  return name(text);
}

static int32_t cb_is_integer(vorn_word h) {
  int32_t v;
  return int32_of(h, &v);
}

static int32_t cb_to_int32(vorn_word h) {
  int32_t v = 0;
  if (!int32_of(h, &v)) fatal("host_to_int32 of a value that is not a 32-bit integer");
  return v;
}

/* Only the array the library asks for: 32-bit words (setting 0 = 4), one
 * dimension (setting 9 = 1), bounds 1 .. n, no initial data. */
static vorn_word cb_array_create(vorn_word* settings, const vorn_word* data, const int32_t* bounds) {
  vorn_word h;
  vorn_word* w;
  if (settings[0] != 4 || settings[9] != 1 || data != NULL || bounds[0] != 1 || bounds[1] < 0)
    fatal("host_array_create: an array this host does not make");
  h = new_object(9, HOST_ARRAY);
  w = words_of(h);
  w[1] = word_of(take_words((size_t)bounds[1]));
  w[2] = 4;
  w[3] = 1;
  w[4] = 1;
  w[5] = (vorn_word)bounds[1];
  w[6] = w[7] = w[8] = (vorn_word)bounds[1];
  return h;
}

static vorn_word* cb_array_data(vorn_word array) {
  if (type_of(array) != HOST_ARRAY) fatal("host_array_data of a value that is not an array");
  return words_of(words_of(array)[1]);
}

static void cb_array_defaults(vorn_word* settings) {
  memset(settings, 0, VORN_ARRAY_SETTINGS_WORDS * sizeof(vorn_word));
}

/* Names are interned when made; this host shares no other objects, so every
 * other value is already its own canonical form. */
static vorn_word cb_unique(vorn_word h) { return h; }

static vorn_word cb_to_boolean(int32_t value) { return boolean_values[value != 0]; }

static vorn_word cb_new_seq(int32_t count) { return new_object(count + 1, HOST_SEQ); }

static vorn_word cb_to_integer(int32_t value) { return integer(value); }

static vorn_word cb_make_name(const char* text, int32_t flag) {
  (void)flag;
  return name(text);
}

static void cb_printf(const char* format, ...) {
  va_list values;
  va_start(values, format);
  vprintf(format, values);
  va_end(values);
}

/* The library fills the SEQ before this call and may write it afterwards,
 * so the call keeps that very SEQ. */
static vorn_word cb_new_function(vorn_word function_name, int32_t count, vorn_word seq) {
  (void)count;
  return funcall(function_name, seq);
}

static vorn_word cb_copy_integer(const vorn_word* record) {
  const int32_t size = (int32_t)record[1];
  return integer_of_limbs(size < 0, size < 0 ? -size : size, words_of(record[2]));
}

static int32_t cb_check_interrupt(void) { return interrupt_requested; }

/* Any other slot: the library never calls one, so a call is a broken contract. */
static void cb_unexpected(void) { fatal("the library called a callback this host does not provide"); }

static vorn_callback_table callbacks;

static void fill_callbacks(void) {
  int i;
  for (i = 0; i < VORN_CALLBACK_TABLE_SIZE; ++i) callbacks.entry[i] = cb_unexpected;
  callbacks.entry[VORN_HOST_NEW_OBJECT] = (vorn_host_fn)cb_new_object;
  callbacks.entry[VORN_HOST_ASSIGN] = (vorn_host_fn)cb_assign;
  callbacks.entry[VORN_HOST_RAISE_ERROR] = (vorn_host_fn)cb_raise_error;
  callbacks.entry[VORN_HOST_EVAL_STRING] = (vorn_host_fn)cb_eval_string;
  callbacks.entry[VORN_HOST_IS_INTEGER] = (vorn_host_fn)cb_is_integer;
  callbacks.entry[VORN_HOST_TO_INT32] = (vorn_host_fn)cb_to_int32;
  callbacks.entry[VORN_HOST_ARRAY_CREATE] = (vorn_host_fn)cb_array_create;
  callbacks.entry[VORN_HOST_ARRAY_DATA] = (vorn_host_fn)cb_array_data;
  callbacks.entry[VORN_HOST_ARRAY_DEFAULTS] = (vorn_host_fn)cb_array_defaults;
  callbacks.entry[VORN_HOST_UNIQUE] = (vorn_host_fn)cb_unique;
  callbacks.entry[VORN_HOST_TO_BOOLEAN] = (vorn_host_fn)cb_to_boolean;
  callbacks.entry[VORN_HOST_NEW_SEQ] = (vorn_host_fn)cb_new_seq;
  callbacks.entry[VORN_HOST_TO_INTEGER] = (vorn_host_fn)cb_to_integer;
  callbacks.entry[VORN_HOST_MAKE_NAME] = (vorn_host_fn)cb_make_name;
  callbacks.entry[VORN_HOST_PRINTF] = (vorn_host_fn)cb_printf;
  callbacks.entry[VORN_HOST_NEW_FUNCTION] = (vorn_host_fn)cb_new_function;
  callbacks.entry[VORN_HOST_COPY_INTEGER] = (vorn_host_fn)cb_copy_integer;
  callbacks.entry[VORN_HOST_CHECK_INTERRUPT] = (vorn_host_fn)cb_check_interrupt;
}

/* ---- Calling the library -------------------------------------------------- */

/* Runs body(context) so that a raise inside comes back here: 1 and the
 * result in *out, or 0 with the message in raised_message. */
static int protect(vorn_word (*body)(void*), void* context, vorn_word* out) {
  jmp_buf here;
  jmp_buf* const outer = running_call;
  if (setjmp(here) != 0) {
    running_call = outer;
    return 0;
  }
  running_call = &here;
  *out = body(context);
  running_call = outer;
  return 1;
}

typedef vorn_word (*entry_fn)(const vorn_callback_table*, vorn_word);

struct entry_call {
  entry_fn entry;
  vorn_word args;
};

static vorn_word run_entry(void* context) {
  const struct entry_call* call = context;
  return call->entry(&callbacks, call->args);
}

/* Calls an entry with n argument words; an error is printed and gives 0. */
static vorn_word call(const char* entry_name, entry_fn entry, int n, ...) {
  vorn_word arguments[8];
  struct entry_call c;
  vorn_word result = 0;
  va_list words;
  int i;
  va_start(words, n);
  for (i = 0; i < n; ++i) arguments[i] = va_arg(words, vorn_word);
  va_end(words);
  c.entry = entry;
  c.args = seq_of(n, arguments);
  if (!protect(run_entry, &c, &result)) {
    printf("error in %s: %s\n", entry_name, raised_message);
    return 0;
  }
  return result;
}

static void show(const char* label, vorn_word value) {
  printf("%s", label);
  print_value(value);
  printf("\n");
}

/* Container slots: 1 term count, 2 ring, 3 layout array, 4 term array. */
static vorn_word container_slot(vorn_word container, int slot) { return words_of(words_of(container)[2])[slot]; }

/* ---- Fraction terms for export_vorn_frac ---------------------------------- */

/* A term block as the library frees it when the export fails: one malloc
 * block of a 16-byte allocation header (8 bytes of size, 8 zero bytes), the
 * vorn_term_block record padded to a multiple of 16 bytes, then the terms. */
#define BLOCK_HEADER_BYTES 16
#define RECORD_BYTES ((sizeof(vorn_term_block) + 15) / 16 * 16)

static vorn_term_block* new_fraction_block(int32_t count, vorn_word* layout) {
  const size_t term_bytes = (size_t)count * (layout[0] + 2) * sizeof(vorn_word);
  const uint64_t bytes = BLOCK_HEADER_BYTES + RECORD_BYTES + term_bytes;
  unsigned char* raw = malloc((size_t)bytes);
  vorn_term_block* block;
  if (raw == NULL) fatal("out of memory");
  memset(raw, 0, BLOCK_HEADER_BYTES);
  memcpy(raw, &bytes, sizeof bytes);
  block = (vorn_term_block*)(void*)(raw + BLOCK_HEADER_BYTES);
  block->terms = (vorn_word*)(void*)(raw + BLOCK_HEADER_BYTES + RECORD_BYTES);
  block->layout = layout;
  block->count = count;
  block->next = NULL;
  return block;
}

static void free_fraction_blocks(vorn_term_block* block) {
  while (block != NULL) {
    vorn_term_block* const next = block->next;
    free((unsigned char*)block - BLOCK_HEADER_BYTES);
    block = next;
  }
}

/* Frees the chunks the export left on the chain.  Each begins with the link
 * to the chunk taken before it.  On i386 a chunk is a malloc block; on
 * x86-64 it is a mapping below 4 GiB that starts 16 bytes before the chunk
 * with its length in bytes. */
static void free_chain(void** chain) {
  void* chunk = *chain;
  *chain = NULL;
  while (chunk != NULL) {
    void* older;
    memcpy(&older, chunk, sizeof older);
#if UINTPTR_MAX > 0xffffffffu
    {
      unsigned char* const mapping = (unsigned char*)chunk - 16;
      size_t length;
      memcpy(&length, mapping, sizeof length);
      munmap(mapping, length);
    }
#else
    free(chunk);
#endif
    chunk = older;
  }
}

/* The terms 3/2 x^2, 5/2 x*y, 1/6 z: the first two in one block, the third
 * in a second, each with the monomial words of a container of x^2 + x*y + z
 * (which holds them in decreasing order, as the export needs them). */
static vorn_term_block* fraction_terms(vorn_word monomials) {
  static const int32_t numerators[3] = {3, 5, 1};
  static const int32_t denominators[3] = {2, 2, 6};
  vorn_word* const layout = cb_array_data(container_slot(monomials, 3));
  const vorn_word* from = cb_array_data(container_slot(monomials, 4));
  const vorn_word msize = layout[0];
  vorn_term_block* const first = new_fraction_block(2, layout);
  vorn_word* to;
  int t;
  first->next = new_fraction_block(1, layout);
  for (t = 0; t < 3; ++t, from += msize + 1) {
    to = t < 2 ? first->terms + (size_t)t * (msize + 2) : first->next->terms;
    memcpy(to, from, msize * sizeof(vorn_word));
    to[msize] = make_immediate(numerators[t]);
    to[msize + 1] = make_immediate(denominators[t]);
  }
  return first;
}

struct export_call {
  vorn_term_block* first;
  vorn_word ring;
  vorn_word scale;
  void* chain;
};

static vorn_word run_export(void* context) {
  struct export_call* c = context;
  return export_vorn_frac(&callbacks, c->first->terms, c->first->layout, c->first->count, c->first->next,
                          c->ring, c->scale, &c->chain);
}

/* The scale L as a coefficient word: the immediate, or the address of the
 * GMP record (word 1) of a big integer. */
static vorn_word coefficient_word(vorn_word integer_handle) {
  return is_immediate(integer_handle) ? integer_handle : word_of(words_of(integer_handle) + 1);
}

static void export_fractions(const char* label, vorn_word monomials, vorn_word scale) {
  struct export_call c;
  vorn_word container = 0;
  c.first = fraction_terms(monomials);
  c.ring = container_slot(monomials, 2);
  c.scale = coefficient_word(scale);
  c.chain = NULL;
  if (!protect(run_export, &c, &container)) {
    /* The library has freed the blocks and the chain already. */
    printf("error in export_vorn_frac: %s\n", raised_message);
    return;
  }
  free_fraction_blocks(c.first);
  free_chain(&c.chain);
  printf("%s", label);
  print_value(call("vorn2kelto", vorn2kelto, 1, container));
  printf("\n");
}

/* ---- The session ---------------------------------------------------------- */

int main(void) {
  static const vorn_word limbs_3_2_31[2] = {0x80000000u, 1u}; /* 3 * 2^31 */
  vorn_word x, y, z, ring, p, mod_p, f, g, A, B, C;
  open_window();
  fill_callbacks();
  boolean_values[0] = object_of(HOST_BOOLEAN, 1, 0u);
  boolean_values[1] = object_of(HOST_BOOLEAN, 1, 1u);

  x = name("x");
  y = name("y");
  z = name("z");
  ring = funcall(name("tdeg"), seq_of(3, (vorn_word[]){x, y, z}));
  p = integer(32003);
  mod_p = object_of(VORN_EQUALITY, 2, name("characteristic"), p);

  /* f = x^2 + 3*x*y - 5*z + 7 and g = 2*x - y + 1, as a host writes them. */
  f = object_of(VORN_SUM, 8, object_of(VORN_PROD, 2, x, integer(2)), integer(1),
                object_of(VORN_PROD, 4, x, integer(1), y, integer(1)), integer(3), z, integer(-5), integer(7),
                integer(1));
  g = object_of(VORN_SUM, 6, x, integer(2), y, integer(-1), integer(1), integer(1));
  show("f = ", f);
  show("g = ", g);
  show("ring: ", ring);

  /* Both polynomials in one ring (the same handle), mod p. */
  A = call("kelto2vorn", kelto2vorn, 3, f, ring, mod_p);
  B = call("kelto2vorn", kelto2vorn, 3, g, ring, mod_p);
  show("terms of A: ", container_slot(A, 1));

  C = call("mul_vorn", mul_vorn, 3, p, A, B);
  show("f*g mod p = ", call("vorn2kelto", vorn2kelto, 1, C));

  show("g divides f*g: ", call("div_vorn", div_vorn, 5, p, C, B, name("unit"), name("q")));
  show("unit = ", value_of(name("unit")));
  show("q = ", call("vorn2kelto", vorn2kelto, 1, value_of(name("q"))));
  show("g divides f: ", call("div_vorn", div_vorn, 3, p, A, B));

  show("f + g mod p = ", call("vorn2kelto", vorn2kelto, 1, call("ads_vorn", ads_vorn, 4, p, integer(0), A, B)));
  show("f - g mod p = ", call("vorn2kelto", vorn2kelto, 1, call("ads_vorn", ads_vorn, 4, p, integer(1), A, B)));
  show("3/2 f mod p = ", call("vorn2kelto", vorn2kelto, 1, call("scl_vorn", scl_vorn, 4, p, integer(3), integer(2), A)));

  /* An argument error: the library raises, this host reports and goes on. */
  call("mul_vorn", mul_vorn, 2, p, A);
  show("after the error, num_cpus(4) = ", call("num_cpus", num_cpus, 1, integer(4)));

  /* Fraction terms with a common denominator 6: all values stay immediate.
   * Then with L = 3 * 2^31 every coefficient is big and goes through the
   * library's pool on the chain; then the same with an interrupt pending,
   * which the pool's growth notices. */
  {
    const vorn_word monomials = call(
        "kelto2vorn", kelto2vorn, 2,
        object_of(VORN_SUM, 6, object_of(VORN_PROD, 2, x, integer(2)), integer(1),
                  object_of(VORN_PROD, 4, x, integer(1), y, integer(1)), integer(1), z, integer(1)),
        ring);
    const vorn_word big_scale = integer_of_limbs(0, 2, limbs_3_2_31);
    export_fractions("6 * (3/2 x^2 + 5/2 x*y + 1/6 z) = ", monomials, integer(6));
    printf("L = ");
    print_value(big_scale);
    printf("\n");
    export_fractions("L * (3/2 x^2 + 5/2 x*y + 1/6 z) = ", monomials, big_scale);
    interrupt_requested = 1;
    export_fractions("interrupted: ", monomials, big_scale);
    interrupt_requested = 0;
  }

  munmap(window, WINDOW_BYTES);
  return 0;
}
