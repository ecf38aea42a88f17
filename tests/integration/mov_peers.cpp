#include "tests/integration/mov_peers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "tests/kit/process.h"
#include "tests/kit/samples.h"
#include "tests/kit/temp_tree.h"

namespace movpeers {

namespace {

std::string outputOf(const std::vector<std::string>& arguments) {
    const kit::Outcome outcome = kit::run(arguments);
    EXPECT_TRUE(outcome.good()) << outcome.m_err;
    EXPECT_EQ(outcome.m_err, "");
    return outcome.m_out;
}

std::vector<std::vector<std::string>> rowsOf(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> row;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, ',');)
            row.push_back(cell);
        if (!row.empty()) rows.push_back(row);
    }
    return rows;
}

void addKinds(const std::string& path, const std::string& stream, std::vector<Packet>& packets) {
    std::map<unsigned long long, char> kinds;
    const std::string text = outputOf({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                                       "frame=pkt_pos,pict_type", "-of", "csv=p=0", path});
    for (const auto& row : rowsOf(text)) {
        if (row.size() >= 2 && !row[1].empty()) kinds[std::strtoull(row[0].c_str(), nullptr, 10)] = row[1][0];
    }
    for (Packet& packet : packets)
        packet.m_kind = kinds.count(packet.m_at) != 0 ? kinds[packet.m_at] : '?';
}

}  // namespace

void write(const std::vector<std::string>& arguments, const std::string& path) {
    std::vector<std::string> command = {"ffmpeg", "-v", "error", "-y"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    command.push_back(path);
    outputOf(command);
}

std::vector<Packet> packetsOf(const std::string& path, const std::string& stream, bool withKinds) {
    std::vector<Packet> packets;
    const std::string text = outputOf({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                                       "packet=pts_time,size,pos,flags", "-of", "csv=p=0", path});
    for (const auto& row : rowsOf(text)) {
        if (row.size() < 3) continue;
        Packet packet;
        packet.m_time = std::strtod(row[0].c_str(), nullptr);
        packet.m_size = static_cast<unsigned>(std::strtoul(row[1].c_str(), nullptr, 10));
        packet.m_at = std::strtoull(row[2].c_str(), nullptr, 10);
        packet.m_kind = 'I';
        packet.m_isSync = row.size() > 3 && row[3][0] == 'K';
        packet.m_bytes = kit::bytesAt(path, packet.m_at, packet.m_size);
        packets.push_back(packet);
    }
    if (withKinds) addKinds(path, stream, packets);
    return packets;
}

std::string decode(const std::string& path, const std::string& stream) {
    const bool isVideo = stream[0] == 'v';
    // Of a bare stream it has to guess, and says so.
    std::vector<std::string> command = {"ffmpeg", "-v", "error"};
    if (path.ends_with(".mov")) command = {"ffmpeg", "-v", "warning", "-enable_drefs", "1"};
    command.insert(command.end(), {"-i", path, "-map", "0:" + stream});
    if (isVideo) command.insert(command.end(), {"-fps_mode", "passthrough"});
    command.insert(command.end(), {"-f", isVideo ? "framemd5" : "md5", "-"});
    const std::string text = outputOf(command);
    if (!isVideo) return text;
    std::string hashes;
    for (const auto& row : rowsOf(text)) {
        if (row[0][0] != '#') hashes += row.back() + "\n";
    }
    return hashes;
}

std::string raw(const std::string& path, unsigned tracks) {
    const kit::TempTree tree;
    std::vector<std::string> command = {"ffmpeg", "-v", "warning", "-enable_drefs", "1", "-i", path};
    for (unsigned i = 0; i < tracks; ++i) {
        const std::string number = std::to_string(i);
        command.insert(command.end(), {"-map", "0:a:" + number, "-c", "copy", "-f", "data", tree.path(number)});
    }
    outputOf(command);
    std::string all;
    for (unsigned i = 0; i < tracks; ++i) {
        std::ifstream file(tree.path(std::to_string(i)), std::ios::binary);
        all.append(std::istreambuf_iterator<char>(file), {});
    }
    return all;
}

std::vector<std::string> rawHashes(const std::vector<std::string>& paths, unsigned tracks) {
    std::vector<std::string> command = {"ffmpeg", "-v", "warning"}, maps;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        command.insert(command.end(), {"-enable_drefs", "1", "-i", paths[i]});
        for (unsigned track = 0; track < tracks; ++track)
            maps.insert(maps.end(), {"-map", std::to_string(i) + ":a:" + std::to_string(track)});
    }
    command.insert(command.end(), maps.begin(), maps.end());
    command.insert(command.end(), {"-c", "copy", "-f", "streamhash", "-hash", "md5", "-"});
    std::vector<std::string> hashes(paths.size());
    std::size_t stream = 0;
    for (const auto& row : rowsOf(outputOf(command))) {
        if (stream < paths.size() * tracks) hashes[stream / tracks] += row.back() + " ";
        ++stream;
    }
    EXPECT_EQ(stream, paths.size() * tracks);
    return hashes;
}

std::string fact(const std::string& path, const std::string& stream, const std::string& name) {
    std::string text = outputOf({"ffprobe", "-v", "warning", "-enable_drefs", "1", "-select_streams", stream,
                                 "-show_entries", "stream=" + name, "-of", "csv=p=0", path});
    while (!text.empty() && (text.back() == '\n' || text.back() == ','))
        text.pop_back();
    return text;
}

}  // namespace movpeers
