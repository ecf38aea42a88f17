#pragma once

#include <string>
#include <vector>

#include "backends/mov/mov_box_reader.h"
#include "backends/mov/mov_facts.h"
#include "support/op_result.h"

// Reads one track's atoms: its description and where its tables lie. The tables themselves stay unread, and so a parse
// costs the same whatever the track's length. **Threads:** one.
class MovTrackParser {
public:
    MovTrackParser(FileWindow& file, unsigned& left) : m_file(file), m_left(left) {}

    // Fails: a warning whose sentence says what is wrong and where; the track is then not to be shown.
    OpResult parse(const MovBox& trak, MovTrack& track);

private:
    // What leads down to the tables, each level in its own function: the depth is that of the format.
    void parseTrack(const MovBox& box);
    void parseMedia(const MovBox& box);
    void parseInformation(const MovBox& box);
    void parseDataInformation(const MovBox& box);
    void parseSampleTable(const MovBox& box);

    void parseHeader(const MovBox& box);
    void parseMediaHeader(const MovBox& box);
    void parseHandler(const MovBox& box);
    void parseReferenceToTracks(const MovBox& box);
    void parseEdits(const MovBox& box);
    void parseReferences(const MovBox& box);
    void parseDescriptions(const MovBox& box);
    void parseSizes(const MovBox& box);
    void parseCompactSizes(const MovBox& box);
    void parseTable(const MovBox& box, unsigned entrySize, MovTable& table);
    bool readCount(const MovBox& box, unsigned before, std::uint32_t& count, std::uint64_t& entries);
    void damage(const MovBox& box, const char* what);
    OpResult refuse(const char* what) const;
    OpResult check();
    const std::uint8_t* bodyOf(const MovBox& box, unsigned size);

    FileWindow& m_file;
    unsigned& m_left;
    MovTrack m_track;
    std::vector<MovBox> m_descriptionLists;  // read when the kind of track is known
    std::string m_damage;                    // the first place, for the sentence
};
