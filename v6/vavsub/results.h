// Returning a verb's results into the application's block: exactly the returned fields, by the rule of the verb's row.
#pragma once

#include "common/types.h"
#include "verbs/catalogue.h"

namespace tessaly {

// Copies the results of an answer, in the caller's layout, into the application's block. verb, format: of the application's
// verb; they decide which rule and lengths hold.
void vav_copy_vcb(void* app_vcb, const void* answer_vcb, const verb_row& verb, u8 format) noexcept;

// Unpacks a logical unit of work identifier of 26 bytes in place: the name padded with blanks to its full width, then
// the rest.
void vav_unsquidge_luwid(u8* luwid) noexcept;

}  // namespace tessaly
