// Which adapters there are, and what selects them.
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using Ports = std::vector<std::string>;

Ports ports() {
    Ports found;
    spifns_enumerate_ports(
        [](uint32_t key, const char* name, void* context) {
            static_cast<Ports*>(context)->push_back(std::to_string(key) + " " + name);
        },
        &found);
    return found;
}

// The adapter that a text selects, "" when that fails.
std::string selected(const Stream& stream, const char* text) {
    char id[32];
    if (stream.set("SPIPORT", text) != 0) return "";
    EXPECT_EQ(spifns_stream_get_device_id(stream.id(), id, sizeof id), 0);
    return stream.get("SPIPORT") + " " + id;
}

TEST(Selection, FollowsPortsAndIds) {
    const struct {
        AdapterIds ids;
        Ports ports;
        std::map<const char*, std::vector<const char*>> choices;  // an adapter, and what selects it
    } cases[] = {
        {{}, {}, {{"", {"0"}}}},
        {{100, 5},
         {"0 USB SPI (100)", "1 USB SPI (1)"},
         {{"0 quill100", {"0", "100"}}, {"1 quill1", {"1"}}, {"", {"5", "2"}}}},
        {{100, 100},
         {"0 USB SPI (100)", "1 USB SPI (1)"},
         {{"0 quill100", {"100"}}, {"1 quill1", {"1"}}}},
        {{31, 32, 4294967295},
         {"0 USB SPI (0)", "1 USB SPI (32)", "2 USB SPI (4294967295)"},
         {{"1 quill32", {"32", " \t1", "+1"}},
          {"2 quill4294967295", {"4294967295", "-1", "99999999999"}},
          {"0 quill0", {"1x", "1 ", "0x1", "abc", ""}},  // what is not wholly a number
          {"", {"31"}}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.ids));
        const Simulator simulator(c.ids);
        EXPECT_EQ(ports(), Ports());
        const Stream stream;
        EXPECT_EQ(ports(), c.ports);
        for (const auto& [adapter, texts] : c.choices)
            for (const char* text : texts) EXPECT_EQ(selected(stream, text), adapter) << text;
    }
}

TEST(Selection, ThatFailsKeepsTheFormerOne) {
    Simulator simulator({100, 200});
    const Stream stream("200");
    stream.set("SPI_DELAY", "9");
    simulator.takeFrames(1);
    const std::string longText = "7" + std::string(2000, 'x') + "7";
    EXPECT_EQ(outcome(stream.set("SPIPORT", "300")),
              (Failure{514, 0, "Couldn't find device with id (300)"}));
    EXPECT_EQ(stream.get("SPIPORT"), "1");
    EXPECT_EQ(stream.get("QUILLVERSION"), "0108");
    EXPECT_EQ(stream.get("SPI_DELAY"), "9");
    EXPECT_EQ(simulator.takeFrames(1), Frames());
    EXPECT_EQ(stream.set("SPIPORT", longText.c_str()), 0);
    EXPECT_EQ(stream.get("SPIPORT"), "0");

    char id[8] = "-------";
    const struct {
        std::size_t size;
        const char* text;
    } cuts[] = {{0, "-------"}, {1, ""}, {6, "quill"}, {8, "quill10"}};
    for (const auto& cut : cuts) {
        EXPECT_EQ(spifns_stream_get_device_id(stream.id(), id, cut.size), 0);
        EXPECT_STREQ(id, cut.text);
    }
    EXPECT_EQ(outcome(spifns_stream_get_device_id(stream.id(), nullptr, 8)),
              (Failure{1, 0, "Invalid variable or value"}));
}

TEST(Selection, RegistersThirtyTwoAdapters) {
    AdapterIds ids;
    for (std::uint32_t i = 0; i < 33; ++i) ids.push_back(1000 - i);
    Simulator simulator(ids);
    const Stream stream;
    const Ports found = ports();
    ASSERT_EQ(found.size(), 32U);
    EXPECT_EQ(found[0], "0 USB SPI (1000)");
    EXPECT_EQ(found[31], "31 USB SPI (969)");
    EXPECT_EQ(selected(stream, "31"), "31 quill969");
    EXPECT_EQ(selected(stream, "968"), "");
    EXPECT_EQ(simulator.takeFrames(32), Frames());
}

TEST(Selection, CountsAdaptersThatDoNotAnswer) {
    Simulator simulator({100, 200});
    simulator.control("fault 0 refuse 5");
    spifns_clear_last_error();
    const Stream stream;
    EXPECT_EQ(lastFailure(), (Failure{516, 0, textOf(5) + ": Driver IO failed"}));
    EXPECT_EQ(ports(), (Ports{"0 USB SPI (0)", "1 USB SPI (200)"}));
    EXPECT_EQ(selected(stream, "0"), "0 quill0");
    EXPECT_EQ(selected(stream, "100"), "");
    spifns_enumerate_ports(nullptr, nullptr);
}

class MappedSelection : public testing::Test {
   protected:
    MappedSelection() {
        std::filesystem::create_directory(local_);
        std::filesystem::current_path(local_);
    }
    ~MappedSelection() override { std::filesystem::current_path("/"); }

    static void write(const std::filesystem::path& folder, const char* content) {
        std::ofstream(folder / "quillmap.txt", std::ios::binary) << content;
    }
    static void remove(const std::filesystem::path& folder) {
        std::filesystem::remove(folder / "quillmap.txt");
    }
    // What opening a stream tells.
    static Failure opening() {
        std::uint32_t id = 0;
        Failure failure = outcome(spifns_stream_init(&id));
        EXPECT_EQ(id == SPIFNS_NO_STREAM, failure.code != 0);
        spifns_stream_close(id);
        EXPECT_EQ(spifns_count_streams(), 0U);
        return failure;
    }
    static Ports portsOfAStream() {
        const Stream stream;
        return ports();
    }

    static constexpr char kPlain0[] = "0 USB SPI (100)";
    static constexpr char kPlain1[] = "1 USB SPI (200)";
    const Simulator simulator_{{100, 200}};
    const std::filesystem::path shared_ = simulator_.documents().path();
    const std::filesystem::path local_ = simulator_.runtime().path() / u8"h\u00e4r-\u2602";
};

TEST_F(MappedSelection, IsReadWithTheFirstStream) {
    write(shared_, "0=200\n1=100\n");
    {
        const Stream first;
        const Ports swapped = ports();
        EXPECT_EQ(selected(first, "0"), "1 quill200");
        write(shared_, "broken");
        EXPECT_EQ(portsOfAStream(), swapped);
    }
    remove(shared_);
    EXPECT_EQ(portsOfAStream(), (Ports{kPlain0, kPlain1}));
}

TEST_F(MappedSelection, LooksInTheSharedFolderFirst) {
    const Ports local = {"0 USB SPI (200)", kPlain1};
    write(local_, "0=200\n");
    EXPECT_EQ(portsOfAStream(), local);
    for (const char* content : {"", "0=100\n"}) {
        write(shared_, content);
        EXPECT_EQ(portsOfAStream(), (Ports{kPlain0, kPlain1}));
    }
    remove(shared_);
    std::filesystem::create_directory(shared_ / "quillmap.txt");  // which is no file
    EXPECT_EQ(portsOfAStream(), local);
}

TEST_F(MappedSelection, RefusesASyntaxError) {
    const auto failure = [](const std::string& name, const char* line) {
        return Failure{514, 0,
                       "Mapping file " + name + " syntax error on line: " + line +
                           "\n: Failed to initialise with quill map file"};
    };
    spifns_clear_last_error();
    write(shared_, "0=200\n\n");
    const std::u8string path = (shared_ / "quillmap.txt").u8string();
    const std::string name(path.begin(), path.end());
    EXPECT_EQ(opening(), failure(name, "2"));
    EXPECT_EQ(outcome(spifns_init()), failure(name, "2"));
    EXPECT_EQ(outcome(spifns_sequence(nullptr, 0)), (Failure{262, 0, "Invalid stream"}));
    remove(shared_);
    write(local_, "0 = 200\n");
    EXPECT_EQ(opening(), failure("<application directory>\\quillmap.txt", "1"));
    remove(local_);
    EXPECT_EQ(opening(), Failure());
}

}  // namespace
}  // namespace wrenlink::test
