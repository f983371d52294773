#include "SongTestSupport.h"

#include <fq/songmaker/SongDocument.h>

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

extern char** environ;

namespace fq::songmaker {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// A writer killed at any moment leaves the old song or the new one, whole.
TEST(DurableWriteTest, AKilledWriterLeavesAWholeSong) {
    TemporaryFolder folder;
    const auto file = folder.path() / "Song.frtqul";
    writeBytes(file, *FrtQulDocument{}.fileWrapper());
    std::mt19937 random(7);
    std::uniform_int_distribution<int> delay(0, 30000);
    std::set<std::string> titles;
    for (int round = 0; round < 60; ++round) {
        pid_t child = 0;
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, ready[0]);
        const char* arguments[] = {FQ_SONG_WRITER, file.c_str(), nullptr};
        ASSERT_EQ(::posix_spawn(&child, FQ_SONG_WRITER, &actions, nullptr,
                                const_cast<char**>(arguments), environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ready[1]);
        char signal = 0;
        ASSERT_EQ(::read(ready[0], &signal, 1), 1) << "the writer starts writing";
        ::close(ready[0]);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        const auto song = FrtQulDocument::read(file);
        ASSERT_TRUE(song) << "round " << round << ": " << song.error().message;
        titles.insert(song->title);
    }
    EXPECT_GE(titles.size(), 2u) << "the writer was caught at different points";
}

} // namespace
} // namespace fq::songmaker
