// Which adapters there are, and what selects them.
#include <gmock/gmock.h>
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

struct Choice {
    const char* text;
    const char* adapter;
};

TEST(Selection, FollowsPortsAndIds) {
    const struct {
        AdapterIds ids;
        Ports ports;
        std::vector<Choice> choices;
    } cases[] = {
        {{}, {}, {{"0", ""}}},
        {{100, 5},
         {"0 USB SPI (100)", "1 USB SPI (1)"},
         {{"0", "0 quill100"}, {"1", "1 quill1"}, {"100", "0 quill100"}, {"5", ""}, {"2", ""}}},
        {{100, 100},
         {"0 USB SPI (100)", "1 USB SPI (1)"},
         {{"100", "0 quill100"}, {"1", "1 quill1"}}},
        {{31, 32, 4294967295},
         {"0 USB SPI (0)", "1 USB SPI (32)", "2 USB SPI (4294967295)"},
         {{"31", ""},
          {"32", "1 quill32"},
          {"4294967295", "2 quill4294967295"},
          {"-1", "2 quill4294967295"},
          {"99999999999", "2 quill4294967295"},
          {" \t1", "1 quill32"},
          {"+1", "1 quill32"},
          // What is not wholly a number selects key 0.
          {"1x", "0 quill0"},
          {"1 ", "0 quill0"},
          {"0x1", "0 quill0"},
          {"abc", "0 quill0"},
          {"", "0 quill0"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.ids));
        const Simulator simulator(c.ids);
        EXPECT_EQ(ports(), Ports());
        const Stream stream;
        EXPECT_EQ(ports(), c.ports);
        for (const Choice& choice : c.choices)
            EXPECT_EQ(selected(stream, choice.text), choice.adapter) << choice.text;
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

// Writes a map file, and removes it at its end.
class MapFile {
   public:
    MapFile(const std::filesystem::path& folder, const std::string& content)
        : path_(folder / "quillmap.txt") {
        std::ofstream(path_, std::ios::binary) << content;
    }
    MapFile(const MapFile&) = delete;
    MapFile& operator=(const MapFile&) = delete;
    ~MapFile() { std::filesystem::remove_all(path_); }

    const std::filesystem::path& path() const { return path_; }

   private:
    std::filesystem::path path_;
};

class MappedSelection : public testing::Test {
   protected:
    MappedSelection() {
        std::filesystem::create_directory(local_);
        std::filesystem::current_path(local_);
    }
    ~MappedSelection() override { std::filesystem::current_path("/"); }

    // What opening a stream tells.
    static Failure opening() {
        std::uint32_t id = 0;
        Failure failure = outcome(spifns_stream_init(&id));
        EXPECT_EQ(id == SPIFNS_NO_STREAM, failure.code != 0);
        spifns_stream_close(id);
        EXPECT_EQ(spifns_count_streams(), 0U);
        return failure;
    }

    static constexpr char kPlain0[] = "0 USB SPI (100)";
    static constexpr char kPlain1[] = "1 USB SPI (200)";
    const Simulator simulator_{{100, 200}};
    const std::filesystem::path shared_ = simulator_.documents().path();
    const std::filesystem::path local_ = simulator_.runtime().path() / u8"h\u00e4r-\u2602";
};

TEST_F(MappedSelection, FollowsTheMapFile) {
    const struct {
        const char* content;
        Ports ports;
        std::vector<Choice> choices;
    } cases[] = {
        {"0=200\n1=100\n",
         {"0 USB SPI (200)", "1 USB SPI (100)"},
         {{"0", "1 quill200"}, {"1", "0 quill100"}, {"100", "0 quill100"}}},
        {"9=200\n3=100",
         {kPlain0, kPlain1, "3 USB SPI (100)", "9 USB SPI (200)"},
         {{"9", "1 quill200"}, {"3", "0 quill100"}}},
        // Key 1 leads to a port that has no adapter.
        {"5=1\n1=5\n6=1\n", {kPlain0, "6 USB SPI (200)"}, {{"1", ""}, {"6", "1 quill200"}}},
    };
    for (const auto& c : cases) {
        const MapFile file(shared_, c.content);
        const Stream stream;
        EXPECT_EQ(ports(), c.ports) << c.content;
        for (const Choice& choice : c.choices)
            EXPECT_EQ(selected(stream, choice.text), choice.adapter) << choice.text;
    }
}

TEST_F(MappedSelection, IsReadWithTheFirstStream) {
    Ports swapped;
    {
        const MapFile file(shared_, "0=200\n1=100\n");
        const Stream first;
        swapped = ports();
        std::ofstream(file.path()) << "broken";
        const Stream second;
        EXPECT_EQ(ports(), swapped);
    }
    const Stream stream;
    EXPECT_EQ(ports(), (Ports{kPlain0, kPlain1}));
}

TEST_F(MappedSelection, LooksInTheSharedFolderFirst) {
    const MapFile local(local_, "0=200\n");
    {
        const Stream stream;
        EXPECT_EQ(ports(), (Ports{"0 USB SPI (200)", kPlain1}));
    }
    for (const char* content : {"", "0=100\n"}) {
        const MapFile shared(shared_, content);
        const Stream stream;
        EXPECT_EQ(ports(), (Ports{kPlain0, kPlain1}));
    }
    std::filesystem::create_directory(shared_ / "quillmap.txt");  // which is no file
    const Stream stream;
    EXPECT_EQ(ports(), (Ports{"0 USB SPI (200)", kPlain1}));
}

TEST_F(MappedSelection, RefusesASyntaxError) {
    const auto failure = [](const std::string& name, const char* line) {
        return Failure{514, 0,
                       "Mapping file " + name + " syntax error on line: " + line +
                           "\n: Failed to initialise with quill map file"};
    };
    spifns_clear_last_error();
    {
        const MapFile file(shared_, "0=200\n\n");
        const std::u8string path = file.path().u8string();
        const std::string name(path.begin(), path.end());
        EXPECT_EQ(opening(), failure(name, "2"));
        EXPECT_EQ(outcome(spifns_init()), failure(name, "2"));
        EXPECT_EQ(outcome(spifns_sequence(nullptr, 0)), (Failure{262, 0, "Invalid stream"}));
    }
    {
        const MapFile file(local_, "0 = 200\n");
        EXPECT_EQ(opening(), failure("<application directory>\\quillmap.txt", "1"));
    }
    EXPECT_EQ(opening(), Failure());
}

}  // namespace
}  // namespace wrenlink::test
