#include "services/file/basic_file_io.h"

BasicFileIO::~BasicFileIO() {
    // Volatile, because a plain store to a dying object may be left out by the compiler.
    *const_cast<volatile unsigned*>(&m_magic) = 0;
}

bool BasicFileIO::validate() const { return *const_cast<const volatile unsigned*>(&m_magic) == s_alive; }
