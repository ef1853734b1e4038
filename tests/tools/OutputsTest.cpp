// Staged outputs: files appear together and complete, or not at all.

#include "Errors.h"
#include "Outputs.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace Zorvan::Tool;

class StagedOutputsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = fs::temp_directory_path() /
                ("zgu-outputs-" + std::to_string(::getpid()) + "-" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root_);
        fs::create_directories(root_);
    }
    void TearDown() override { fs::remove_all(root_); }

    static void Put(fs::path const& path, std::string const& text) { std::ofstream(path) << text; }
    static std::string Read(fs::path const& path)
    {
        std::ifstream in(path);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    // Everything below the root, staging folders included.
    std::vector<std::string> Listing() const
    {
        std::vector<std::string> names;
        for (auto const& entry : fs::recursive_directory_iterator(root_))
            names.push_back(entry.path().lexically_relative(root_).string());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path root_;
};

TEST_F(StagedOutputsTest, CommitMovesEveryStagedFileIncludingOnesAWriterAdded)
{
    fs::path const destination = root_ / "new" / "deeper";
    StagedOutputs staged(destination);
    fs::path const model = staged.Stage("model.obj");
    EXPECT_FALSE(fs::exists(root_ / "new")) << "nothing is created before the commit";
    Put(model, "o model\n");
    Put(model.parent_path() / "model.mtl", "newmtl a\n"); // as an exporter writes its side file
    auto const committed = staged.Commit(false);
    ASSERT_EQ(committed.size(), 2u);
    EXPECT_EQ(committed[0], destination / "model.mtl");
    EXPECT_EQ(Read(destination / "model.obj"), "o model\n");
    EXPECT_EQ(Listing(), (std::vector<std::string>{"new", "new/deeper", "new/deeper/model.mtl",
                                                   "new/deeper/model.obj"}));
}

TEST_F(StagedOutputsTest, AbandonedOutputsLeaveNothingBehind)
{
    {
        StagedOutputs staged(root_ / "out");
        Put(staged.Stage("a.png"), "half a picture");
        Put(staged.Stage("b.png"), "");
    } // an error ends the work here
    EXPECT_TRUE(Listing().empty());
}

TEST_F(StagedOutputsTest, ExistingFilesStopTheWholeCommitUnlessReplacing)
{
    Put(root_ / "b.png", "precious");
    {
        StagedOutputs staged(root_);
        Put(staged.Stage("a.png"), "new a");
        Put(staged.Stage("b.png"), "new b");
        EXPECT_THROW(
            {
                try {
                    staged.Commit(false);
                } catch (Failure const& e) {
                    EXPECT_NE(std::string(e.what()).find("--force"), std::string::npos) << e.what();
                    throw;
                }
            },
            Failure);
    }
    EXPECT_EQ(Listing(), std::vector<std::string>{"b.png"}) << "a.png must not have moved alone";
    EXPECT_EQ(Read(root_ / "b.png"), "precious");

    Put(root_ / "old-mip07.png", "stale");
    StagedOutputs staged(root_);
    Put(staged.Stage("a.png"), "new a");
    Put(staged.Stage("b.png"), "new b");
    staged.Commit(true, {root_ / "old-mip07.png"});
    EXPECT_EQ(Listing(), (std::vector<std::string>{"a.png", "b.png"}));
    EXPECT_EQ(Read(root_ / "b.png"), "new b");
}

TEST_F(StagedOutputsTest, ForceNeverReplacesAFolder)
{
    Put(root_ / "a.png", "old a");
    fs::create_directories(root_ / "b.png" / "kept");
    for (bool replace : {false, true}) {
        StagedOutputs staged(root_);
        Put(staged.Stage("a.png"), "new a");
        Put(staged.Stage("b.png"), "new b");
        EXPECT_THROW(staged.Commit(replace), Failure) << replace;
    }
    EXPECT_EQ(Read(root_ / "a.png"), "old a");
    EXPECT_EQ(Listing(), (std::vector<std::string>{"a.png", "b.png", "b.png/kept"}));
}

} // namespace
