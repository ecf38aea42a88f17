#include "tools/help_examples.h"

#include <array>

namespace {

struct Example {
    const char* m_command;
    const char* m_text;
};

constexpr std::array<Example, 12> s_examples = {{
    {"info",
     "mediacore info interview.wav\n"
     "    what the movie is, its tracks, clips and files\n"
     "mediacore info --field timecode.text tape.dv\n"
     "    the timecode of the first frame\n"
     "mediacore info --json *.wav | jq -r '.movies[] | select(.error) | .path'\n"
     "    which of these files can't be opened\n"
     "mediacore info --field durationSeconds interview.wav\n"
     "    one bare value\n"
     "mediacore info --xml -o interview.xml interview.wav\n"
     "    all of it as XML, in a new file\n"
     "mediacore info -- -odd-name.wav\n"
     "    a name that looks like an option\n"},
    {"read",
     "mediacore read interview.wav --track audio0 -o interview.pcm\n"
     "    all samples, as they lie in the file\n"
     "mediacore read interview.wav --track audio0 --from 48000 --count 96000 | \\\n"
     "        ffplay -f s16le -ar 48000 -ac 2 -\n"
     "    two seconds from the first second on\n"
     "mediacore read tape.dv --track video0 --frames --from 250 --count 25 -o part.dv\n"
     "    frames 250 to 274\n"
     "mediacore read interview.wav --track audio0 -o part.pcm --json --progress=none\n"
     "    what was read, as a document\n"},
    {"frames",
     "mediacore frames interview.wav --track audio0 --count 5\n"
     "    where the samples of the first five video frames lie\n"
     "mediacore frames tape.dv --track video0\n"
     "    where each picture lies, and how it is coded\n"
     "mediacore frames interview.wav --json | jq '.frames[0].offset'\n"
     "    the place of the first sample\n"},
    {"formats",
     "mediacore formats\n"
     "    the formats that can be read and written\n"
     "mediacore formats --json | jq -r '.formats[] | select(.role == \"reader\") | .suffixes[]'\n"
     "    the suffixes of readable files\n"},
    {"watch",
     "mediacore watch live.wav\n"
     "    a line at each replacement and growth, until a signal comes\n"
     "mediacore watch --jsonl live.wav | jq -r 'select(.event == \"grown\") | .safe'\n"
     "    how far the movie may be read, in frames\n"},
    {"play",
     "mediacore play interview.wav -o interview.pcm\n"
     "    what may be read now\n"
     "mediacore play --follow live.wav | ffplay -f s24le -ar 48000 -ac 2 -\n"
     "    a recording while another process makes it\n"},
    {"record",
     "mediacore record take.wav --from take.raw --rate 48000 --channels 2 --bits 24\n"
     "    raw samples as a movie\n"
     "arecord -t raw -f S24_3LE -r 48000 -c 2 | mediacore record live.wav --from - --jsonl\n"
     "    from a sound card until a signal comes, with a line for each second that is safe\n"},
    {"rename",
     "mediacore rename interview.mov archive/2026/monday.mov\n"
     "    the media files go along and keep their places beside the movie\n"
     "mediacore rename --media --dry-run interview.mov monday.mov\n"
     "    what the media files would be called after the new name\n"
     "mediacore rename take.wav archive/\n"
     "    into a folder, under the name that it has\n"},
    {"validate",
     "mediacore validate interview.aiff\n"
     "    a line for each block of sound with jumps that no sound has\n"
     "mediacore validate --json *.mov | jq -r '.files[] | select(.findings[0]) | .path'\n"
     "    which of these movies have findings\n"
     "MEDIACORE_SWITCHES=validatePcmPowerLimit=4 mediacore validate loud.aiff\n"
     "    jumps of more than a quarter of the full scale only\n"},
    {"status",
     "mediacore status 4711\n"
     "    what that process has open and under way\n"
     "mediacore status --json --ctl /run/mediacore 4711 | jq '.status.objects[] | select(.holders > 0) | .path'\n"
     "    which movies are held\n"
     "mediacore status --openmetrics 4711 > /var/lib/node_exporter/mediacore.prom\n"
     "    its counters, for a collector that reads files\n"},
    {"switch",
     "mediacore switch 4711\n"
     "    all switches of that process\n"
     "mediacore switch 4711 setbit mediaObjDbg 'cache activity'\n"
     "    log what its cache does\n"
     "mediacore switch /run/mediacore/mediacore.4711.sock set mediaZombieTime 5\n"
     "    by the socket's path\n"},
    {"generate",
     "mediacore generate bash-completion > /etc/bash_completion.d/mediacore\n"
     "    completion for every user\n"
     "mediacore generate man | man -l -\n"
     "    the manual\n"},
}};

}  // namespace

std::string helpExamples(const std::string& command) {
    for (const Example& example : s_examples) {
        if (command == example.m_command) return example.m_text;
    }
    return "";
}
