#pragma once

#include "shared/include/object/media_format.h"

// What is recorded as a movie file: PCM of 8, 16, 24 and 32 bits of either byte order, A-law, DV, MPEG-2,
// ProRes and AVC, in the movie's own file or in files of bare samples beside it. A sample of sound is one of all
// channels; a sample of video is a picture as its coding has it: a DV frame, a picture of MPEG-2 with the headers in
// front of it, a ProRes frame with its size and mark, and of AVC an access unit whose units are behind lengths of four
// bytes each, not behind start codes. Pictures come in the order of decoding, and say of themselves whether they are I,
// P or B; those of AVC must have no B picture that others refer to. The parameter sets of AVC are taken from the
// stream.
namespace MovWriter {

MediaWriterDesc describe();

}  // namespace MovWriter
