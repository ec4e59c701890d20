// Marks the classes that the shared library exports; it hides all others.
#pragma once

#define KEEPWELL_EXPORT __attribute__((visibility("default")))
#define KEEPWELL_LOCAL __attribute__((visibility("hidden")))
