// The road of an ordinary verb is one piece of code; what happens once in a program's life stays out of it.
#pragma once

// On the function at the head of such a road: everything that it calls is inlined.
#define TESSALY_HOT_ROAD [[gnu::flatten]]

// On a function that leads off the road.
#define TESSALY_OFF_THE_ROAD [[gnu::cold, gnu::noinline]]
