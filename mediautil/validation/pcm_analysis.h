#pragma once

class PcmParser;
class PcmPattern;

// Which vectors are used: those of every processor that the program runs on, or the widest that this one has.
enum class PcmVectors { Common, Widest };

// Adds the next `samples` instants of the parser to the pattern, most of them many at a time. What it leaves behind is
// what `pattern.add(parser.decodeNextSample())` would have, so many times. Requires: the parser has that many left.
void analysePcm(PcmParser& parser, PcmPattern& pattern, unsigned samples, PcmVectors vectors = PcmVectors::Widest);
