#include "Platform/CoreMediaIO/linux/DaemonWatcher.h"
#include "Platform/CoreMediaIO/linux/EmbeddedServer.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Patience.h"
#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

namespace cmio {
namespace {

using pavo::test::kPatience;
using pavo::test::openDescriptorCount;
using pavo::test::waitFor;

class DaemonWatcherTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(folder_);
        ::setenv("PIPEWIRE_RUNTIME_DIR", folder_.c_str(), 1);
        makeWatcher();
    }
    void TearDown() override
    {
        {
            const PipeWireLoop::Lock lock(loop_);
            watcher_.reset();
        }
        ::unsetenv("PIPEWIRE_RUNTIME_DIR");
        ::unsetenv("PIPEWIRE_REMOTE");
    }

    void makeWatcher()
    {
        const PipeWireLoop::Lock lock(loop_);
        watcher_ = std::make_unique<DaemonWatcher>(loop_, [this] { ++sockets_; });
    }
    void start()
    {
        const PipeWireLoop::Lock lock(loop_);
        watcher_->start();
    }
    void stop()
    {
        const PipeWireLoop::Lock lock(loop_);
        watcher_->stop();
    }
    // What a socket is does not matter to it.
    void create(const std::string& name = "pipewire-0") const
    {
        std::filesystem::remove(folder_ / name);
        std::ofstream(folder_ / name) << "";
    }
    bool hasTold(int sockets) const
    {
        return waitFor([this, sockets] { return sockets_ >= sockets; }, kPatience) && sockets_ == sockets;
    }

    const pavo::test::TemporaryFolder outer_;
    const std::filesystem::path folder_ = std::filesystem::path(outer_.path()) / "runtime";
    std::atomic<int> sockets_ = 0;
    PipeWireLoop loop_;
    std::unique_ptr<DaemonWatcher> watcher_;
};

TEST_F(DaemonWatcherTest, TellsOfTheSocketAndOfNothingElse)
{
    start();
    create("pipewire-0.lock");
    create("pipewire-0-manager");
    create("other");
    create();
    EXPECT_TRUE(hasTold(1));
    create();
    EXPECT_TRUE(hasTold(2));
}

TEST_F(DaemonWatcherTest, TellsOfASocketThatIsMovedToItsPlace)
{
    start();
    create("new");
    std::filesystem::rename(folder_ / "new", folder_ / "pipewire-0");
    EXPECT_TRUE(hasTold(1));
}

TEST_F(DaemonWatcherTest, LooksForTheSocketThatClientsAreToldOf)
{
    ::setenv("PIPEWIRE_REMOTE", "pipewire-7", 1);
    makeWatcher();
    start();
    create();
    create("pipewire-7");
    EXPECT_TRUE(hasTold(1));
}

TEST_F(DaemonWatcherTest, WatchesAgainAfterItWasStopped)
{
    for (int round = 1; round <= 3; ++round) {
        start();
        create();
        ASSERT_TRUE(hasTold(round));
        stop();
        create();
    }
}

TEST_F(DaemonWatcherTest, ForgetsWhatHappenedBeforeItWasStopped)
{
    {
        // The loop cannot read of it until all this is over.
        const PipeWireLoop::Lock lock(loop_);
        watcher_->start();
        create();
        watcher_->stop();
        watcher_->start();
    }
    create();
    EXPECT_TRUE(hasTold(1));
}

TEST_F(DaemonWatcherTest, KeepsItsDescriptorUntilItGoes)
{
    const std::size_t before = openDescriptorCount();
    start();
    const std::size_t watching = openDescriptorCount();
    EXPECT_EQ(watching, before + 1);
    for (int round = 0; round < 10; ++round) {
        stop();
        start();
    }
    EXPECT_EQ(openDescriptorCount(), watching);
    {
        const PipeWireLoop::Lock lock(loop_);
        watcher_.reset();
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(DaemonWatcherTest, WatchesAFolderThatComesLater)
{
    std::filesystem::remove(folder_);
    start();
    std::filesystem::create_directory(folder_);
    start();
    create();
    EXPECT_TRUE(hasTold(1));
}

TEST_F(DaemonWatcherTest, WatchesAFolderThatWasMadeAnew)
{
    start();
    create();
    ASSERT_TRUE(hasTold(1));
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directory(folder_);
    // It has to hear first that the old one has gone.
    EXPECT_TRUE(waitFor(
        [this] {
            start();
            create();
            return sockets_ > 1;
        },
        kPatience));
}

TEST_F(DaemonWatcherTest, DoesNotWatchForTheCamerasOwnServer)
{
    ::setenv("PIPEWIRE_REMOTE", EmbeddedServer::kName, 1);
    makeWatcher();
    const std::size_t before = openDescriptorCount();
    start();
    EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
}  // namespace cmio
