// Returning a verb's results into the application's block: exactly the returned fields, by the rule of the verb's row.
#pragma once

#include "common/types.h"
#include "verbs/catalogue.h"

namespace tessaly {

// Copies the results of an answer, in the caller's layout, into the application's block. The application's format decides which rule
// and lengths hold. verb: the row of the application's verb.
void vav_copy_vcb(void* app_vcb, const void* answer_vcb, const verb_row& verb) noexcept;

// Unpacks a logical unit of work identifier of 26 bytes in place: the name padded with blanks to its full width, then
// the rest.
void vav_unsquidge_luwid(u8* luwid) noexcept;

}  // namespace tessaly
