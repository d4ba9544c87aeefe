// What a fuzz program does once before its first input.
#pragma once

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
