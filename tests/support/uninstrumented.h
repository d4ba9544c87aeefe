// For functions that stand in for the C library's: a sanitizer calls them while it starts, before instrumented code may
// run.
#pragma once

#define TESTS_UNINSTRUMENTED __attribute__((no_sanitize("address"), no_sanitize("thread"), no_sanitize("undefined")))
