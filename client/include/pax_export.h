// Marks the library's public interface; everything else stays hidden in the shared object.
#pragma once

#define PAX_EXPORT __attribute__((visibility("default")))
