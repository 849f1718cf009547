/* The public header is C: a host written in C includes it and sees the
 * word formats and the table layout the library expects. */
#include "vorn.h"

#include <stddef.h>

typedef char word_is_32_bits[sizeof(vorn_word) == 4 ? 1 : -1];
typedef char table_slot_is_a_pointer[sizeof(((vorn_callback_table*)0)->entry[0]) == sizeof(void*) ? 1 : -1];
typedef char printf_slot_at_its_index[offsetof(vorn_callback_table, entry[VORN_HOST_PRINTF]) ==
                                              VORN_HOST_PRINTF * sizeof(void*) ? 1 : -1];

int main(void) {
  vorn_host_printf_fn print = 0;
  vorn_term_block block = {0, 0, 0, 0};
  (void)print;
  return block.count + (VORN_IMMEDIATE_ONE == 3 ? 0 : 1);
}
