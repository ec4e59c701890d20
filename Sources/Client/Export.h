// What the shared library shows of itself: the classes marked here and nothing
// else.
#pragma once

#define KEEPWELL_EXPORT __attribute__((visibility("default")))
#define KEEPWELL_LOCAL __attribute__((visibility("hidden")))
