// The version that the library carries in its file and hands out.
#include "common/export.h"

#include <tessaly/diagnostics.h>

#define VERSION_LINE "V7.1.0.1 Korvel Tessaly LU 6.2 Verb Library Routines (32 bit over 64 bit core)\n"
#define WHAT_STRING "@(#)]"

extern "C" {

TESSALY_EXPORT char o6_verstring[255] = WHAT_STRING VERSION_LINE WHAT_STRING "            (: 22/01/19 11:01:58)\n" WHAT_STRING;
TESSALY_EXPORT char o6_verstring1[255] = VERSION_LINE;
TESSALY_EXPORT char o6_verstring1_tvt[255] = "V7.1.0.1  %1\n";
TESSALY_EXPORT char o6_dummy[512];

TESSALY_EXPORT const char* o6_verstamp(void)
{
    return o6_verstring1;
}

TESSALY_EXPORT const char* o6_verstamp_tvt(void)
{
    return o6_verstring1_tvt;
}

}  // extern "C"
