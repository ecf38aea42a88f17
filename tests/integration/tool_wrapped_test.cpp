// A file that an independent program wrote, read through the timeline's stand-in as without it.

#include <gtest/gtest.h>

#include "tests/integration/tool_kit.h"

namespace {

class ToolWrapped : public testing::Test {
protected:
    // The same call with the switch off and on; both outcomes are held against each other.
    void expectTheSame(const std::vector<std::string>& arguments) {
        kit::Command command = toolCommand(arguments);
        const kit::Outcome plain = kit::run(command);
        command.m_environment = {{"MEDIACORE_SWITCHES", "mediaObjDbg=wrap in tlmo"}};
        const kit::Outcome wrapped = kit::run(command);
        EXPECT_EQ(plain.m_exit, 0) << plain.m_err;
        EXPECT_EQ(wrapped.m_exit, 0) << wrapped.m_err;
        EXPECT_FALSE(plain.m_out.empty());
        EXPECT_TRUE(wrapped.m_out == plain.m_out) << wrapped.m_out.size() << " bytes, not " << plain.m_out.size();
        EXPECT_EQ(wrapped.m_err, plain.m_err);
    }

    kit::TempTree m_tree;
};

}  // namespace

TEST_F(ToolWrapped, AWavIsDescribedAndReadTheSame) {
    const std::string path = writeWav(m_tree, "movie.wav");
    expectTheSame({"info", path});
    expectTheSame({"info", path, "--json"});
    expectTheSame({"frames", path, "--track", "audio0", "--json"});
    expectTheSame({"read", path, "--track", "audio0"});
}
