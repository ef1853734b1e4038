// Which files a batch takes and where their outputs go.

#include "Batch.h"
#include "Errors.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>

namespace {

namespace fs = std::filesystem;
using namespace Zorvan::Tool;

class BatchPlanTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = fs::temp_directory_path() /
                ("zgu-plan-" + std::to_string(::getpid()) + "-" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root_);
        for (char const* name : {"tex/a.png", "tex/a.tga", "tex/notes.txt", "tex/.hidden.png", "tex/.git/x.png",
                                 "tex/sub/b.png", "tex/sub/deeper/c.png", "other/b.png", "tex/out/old.png"}) {
            fs::create_directories((root_ / name).parent_path());
            std::ofstream(root_ / name) << "x";
        }
        command_.name = "image";
        command_.inputKind = "image files";
        command_.accepts = [](fs::path const& path) { return path.extension() != ".txt"; };
    }
    void TearDown() override { fs::remove_all(root_); }

    BatchOptions Options(std::vector<std::string> inputs, std::string outDir = "") const
    {
        BatchOptions options;
        for (auto& input : inputs)
            options.inputs.push_back((root_ / input).string());
        options.outDir = outDir.empty() ? "" : (root_ / outDir).string();
        return options;
    }
    // input -> output base, both relative to the root.
    std::vector<std::pair<std::string, std::string>> Plan(BatchOptions const& options) const
    {
        std::vector<std::pair<std::string, std::string>> plan;
        for (BatchFile const& file : PlanBatch(options, command_))
            plan.emplace_back(file.input.lexically_relative(root_).string(),
                              file.outputBase.lexically_relative(root_).string());
        return plan;
    }
    std::string UsageMessage(BatchOptions const& options) const
    {
        try {
            PlanBatch(options, command_);
        } catch (UsageError const& e) {
            return e.what();
        }
        return "(no usage error)";
    }

    fs::path root_;
    BatchCommand command_;
};

TEST_F(BatchPlanTest, FoldersKeepTheirStructureAndCollidingNamesKeepTheirExtensions)
{
    BatchOptions options = Options({"tex"}, "tex/out");
    options.recursive = true;
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    // Hidden files and folders, files the command does not take and an
    // earlier run's outputs inside the input folder are left out.
    EXPECT_EQ(Plan(options), (Pairs{{"tex/a.png", "tex/out/a.png"},
                                    {"tex/a.tga", "tex/out/a.tga"},
                                    {"tex/sub/b.png", "tex/out/sub/b"},
                                    {"tex/sub/deeper/c.png", "tex/out/sub/deeper/c"}}));

    options.recursive = false;
    EXPECT_EQ(Plan(options).size(), 2u);

    // Named files go straight under --out-dir; the same file twice runs once.
    BatchOptions named = Options({"tex/sub/b.png", "tex/a.png", "tex/sub/../a.png"}, "out");
    EXPECT_EQ(Plan(named), (Pairs{{"tex/sub/b.png", "out/b"}, {"tex/a.png", "out/a"}}));

    // Without --out-dir, outputs sit beside their inputs.
    EXPECT_EQ(Plan(Options({"tex/a.png", "tex/sub/b.png"})),
              (Pairs{{"tex/a.png", "tex/a"}, {"tex/sub/b.png", "tex/sub/b"}}));
}

TEST_F(BatchPlanTest, WhatCannotWorkIsAUsageErrorBeforeAnyWork)
{
    EXPECT_NE(UsageMessage(Options({"tex/missing.png"})).find("no such file"), std::string::npos);
    EXPECT_NE(UsageMessage(Options({"tex"})).find("needs --out-dir"), std::string::npos);
    command_.writesBesideInputs = false;
    EXPECT_EQ(UsageMessage(Options({"tex"})), "(no usage error)");

    fs::create_directories(root_ / "empty" / "inner");
    std::ofstream(root_ / "empty" / "inner" / "d.png") << "x";
    std::string const empty = UsageMessage(Options({"empty"}, "out"));
    EXPECT_NE(empty.find("holds no image files"), std::string::npos) << empty;
    EXPECT_NE(empty.find("--recursive"), std::string::npos) << empty;

    // Same name and extension from two folders: nothing tells them apart.
    std::string const clash = UsageMessage(Options({"tex/sub/b.png", "other/b.png"}, "out"));
    EXPECT_NE(clash.find("would write the same outputs"), std::string::npos) << clash;
}

} // namespace
