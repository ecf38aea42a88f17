#pragma once

// Says that something couldn't be done with a file, in one clamped line with path and reason: the system's words for
// the errno value, or the sentence given instead.
void tellFailure(const char* tag, const char* path, const char* what, int error, const char* reason = nullptr);
