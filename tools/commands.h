#pragma once

#include "tools/exit_code.h"
#include "tools/options.h"
#include "tools/output.h"

// The commands, each in the source of its name. They tell their failures themselves and answer how the program ends.
ExitCode runInfo(const InfoOptions& options, Output& output);
ExitCode runRead(const ReadOptions& options, bool quiet, Output& output);
ExitCode runFrames(const FramesOptions& options, Output& output);
ExitCode runFormats(Output& output);
ExitCode runWatch(const WatchOptions& options, Output& output);
ExitCode runPlay(const PlayOptions& options, bool quiet, Output& output);
ExitCode runRecord(const RecordOptions& options, bool quiet, Output& output);
ExitCode runRename(const RenameOptions& options, Output& output);
ExitCode runValidate(const ValidateOptions& options, bool quiet, Output& output);
ExitCode runStatus(const StatusOptions& options, Output& output);
ExitCode runSwitch(const SwitchOptions& options, Output& output);
ExitCode runGenerate(const GenerateOptions& options, Output& output);
