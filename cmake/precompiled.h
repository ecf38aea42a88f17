#pragma once

// What most sources read, compiled once where that pays. No source may rely on it: each includes what it needs.

#include "shared/include/mediaobj"
