// Node reads without stdio: whole-node reads from offset 0, and line pieces and conversions from
// memory that give what the C library's stream reads give on the same bytes.
#include "node_reader.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "common/test_util.h"
#include "node_parsers.h"

namespace {

using std::string;

// Bytes as a stream of the C library, read from the start.
FILE* stream_of(const string& bytes) {
    FILE* fp = tmpfile();
    fwrite(bytes.data(), 1, bytes.size(), fp);
    rewind(fp);
    return fp;
}

const string kTexts[] = {
    "",
    "\n",
    "12\n34",
    "  -7 +8\tx 9\n",
    "-",
    "- 5",
    "+",
    "n/a\n",
    "4294967296 -1\n",
    string("ab\0cd\nef", 8),
    string("\0 1", 3),
    "a much longer line that needs several pieces\nshort\n\n0123456789",
    "abcdef",
    "0-7\n",
    " 4 -5",
    "2- 9x",
};

// Every piece that fgets cuts from the bytes, and the end-of-file flag after each read.
TEST(MemStream, LinePiecesMatchFgets) {
    for (const string& text : kTexts) {
        for (int size : {2, 3, 8, 1024}) {
            FILE* fp = stream_of(text);
            mem_stream in = mem_open(text.data(), text.size());
            for (int piece = 0;; piece++) {
                string want(1024, 'x'), got(1024, 'x');
                long before = ftell(fp);
                char* w = fgets(&want[0], size, fp);
                char* g = mem_gets(&got[0], size, &in);
                SCOPED_TRACE(testing::Message()
                             << "text " << text << " size " << size << " piece " << piece);
                ASSERT_EQ(w == nullptr, g == nullptr);
                EXPECT_EQ((bool)feof(fp), in.eof);
                if (w == nullptr) break;
                size_t n = (size_t)(ftell(fp) - before) + 1;  // the piece and its NUL
                EXPECT_EQ(want.substr(0, n), got.substr(0, n));
            }
            fclose(fp);
        }
    }
}

// Two conversions in a row, as "%lld %lld", "%llu %llu", "%d %d", "%u %u", "%3s%3s" and the
// possible-CPU list's "%u-%u" scan them.
TEST(MemStream, ConversionsMatchScanf) {
    for (const string& text : kTexts) {
        SCOPED_TRACE(text);
// The reference scan takes each case's format from the call below, not from a literal.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        auto check = [&](const char* fmt, auto scan, auto narrow) {
            using T = decltype(narrow(0));
            T want[2] = {T(77), T(77)}, got[2] = {T(77), T(77)};
            FILE* fp = stream_of(text);
            int wret = fscanf(fp, fmt, &want[0], &want[1]);
            mem_stream in = mem_open(text.data(), text.size());
            int gret = scan(&in, &got[0]);
            if (gret == 1) {
                mem_skip_space(&in);
                int second = scan(&in, &got[1]);
                gret = second == 1 ? 2 : 1;
            }
            EXPECT_EQ(wret, gret) << fmt;
            for (int i = 0; i < 2 && i < wret; i++) EXPECT_EQ(want[i], got[i]) << fmt;
            EXPECT_EQ((bool)feof(fp), in.eof) << fmt;
            fclose(fp);
        };
#pragma GCC diagnostic pop
        auto ll = [](mem_stream* in, long long* v) { return mem_scan_ll(in, v); };
        auto ull = [](mem_stream* in, unsigned long long* v) { return mem_scan_ull(in, v); };
        auto i32 = [](mem_stream* in, int* v) {
            long long x = 0;
            int r = mem_scan_ll(in, &x);
            if (r == 1) *v = (int)x;
            return r;
        };
        auto u32 = [](mem_stream* in, unsigned* v) {
            unsigned long long x = 0;
            int r = mem_scan_ull(in, &x);
            if (r == 1) *v = (unsigned)x;
            return r;
        };
        check("%lld %lld", ll, [](int) { return 0LL; });
        check("%llu %llu", ull, [](int) { return 0ULL; });
        check("%d %d", i32, [](int) { return 0; });
        check("%u %u", u32, [](int) { return 0U; });

        char want[2][8] = {"?", "?"}, got[2][8] = {"?", "?"};
        FILE* fp = stream_of(text);
        int wret = fscanf(fp, "%3s%3s", want[0], want[1]);
        mem_stream in = mem_open(text.data(), text.size());
        int gret = mem_scan_word(&in, got[0], 3);
        if (gret == 1) gret = mem_scan_word(&in, got[1], 3) == 1 ? 2 : 1;
        EXPECT_EQ(wret, gret);
        for (int i = 0; i < 2 && i < wret; i++) EXPECT_EQ(0, memcmp(want[i], got[i], 4));
        EXPECT_EQ((bool)feof(fp), in.eof);  // a word cut at its width looks no further
        fclose(fp);

        unsigned wmin = 77, wmax = 77, gmin = 77, gmax = 77;
        fp = stream_of(text);
        EXPECT_EQ(fscanf(fp, "%u-%u", &wmin, &wmax),
                  cpu_parse_possible(text.data(), text.size(), &gmin, &gmax));
        EXPECT_EQ(wmin, gmin);
        EXPECT_EQ(wmax, gmax);
        fclose(fp);
    }
}

class NodeRead : public ::testing::Test {
  protected:
    string read(size_t size = NODE_BUF_LEN) {
        std::vector<char> buf(size);
        ssize_t n = node_read_path(path.c_str(), buf.data(), size);
        return n < 0 ? "(none)" : string(buf.data(), (size_t)n);
    }
    tarn_test::TempDir tmp;
    string dir = tmp.path, path = dir + "/node";
};

// Whole content from the start whatever its size: a node that grows past a page is read whole,
// one that shrinks leaves nothing of its earlier content, and one larger than the buffer is cut.
TEST_F(NodeRead, ReadsTheWholeContentFromTheStart) {
    for (size_t size : {0, 1, 100, 4096, 4097, 10000, 65536}) {
        string text(size, 'a');
        for (size_t i = 0; i < size; i++) text[i] = (char)('a' + i % 26);
        tarn_test::write_file(path, text);
        EXPECT_EQ(read(), text) << size;
    }
    tarn_test::write_file(path, string(70000, 'z'));
    EXPECT_EQ(read(), string(NODE_BUF_LEN, 'z'));
    EXPECT_EQ(read(10), string(10, 'z'));

    // Kept open and read again after each change, as the node table does.
    FILE* fp = fopen(path.c_str(), "re");
    ASSERT_NE(fp, nullptr);
    char buf[NODE_BUF_LEN];
    for (const string& text : {string(5000, 'g'), string("7\n"), string()}) {
        tarn_test::write_file(path, text);
        ssize_t n = node_pread(fileno(fp), buf, sizeof(buf));
        EXPECT_EQ(string(buf, (size_t)n), text);
    }
    fclose(fp);
}

TEST_F(NodeRead, FilesThatCannotBeOpenedOrRead) {
    EXPECT_EQ(read(), "(none)");
    EXPECT_EQ(errno, ENOENT);
    // A directory opens but cannot be read: empty content, and errno says why.
    path = dir;
    EXPECT_EQ(read(), "");
    EXPECT_EQ(errno, EISDIR);
    path = dir + "/node";
    EXPECT_EQ(node_pread(-1, nullptr, 0), 0);
    char c;
    EXPECT_EQ(node_pread(-1, &c, 1), -EBADF);
}

}  // namespace
