#pragma once

// Marks what clients of the shared library may link against; all else stays hidden.
#define MO_PUBLIC __attribute__((visibility("default")))
