// The tool's image files and small services, called directly.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include "tool_testutil.h"

using sorn::tool::Failure;
using sorn::tool::Image;
using tool_test::Scratch;

namespace {

// The failure a call throws; the test fails when it throws none.
template <class F>
Failure failure_of(F f) {
  try {
    f();
  } catch (const Failure &e) {
    return e;
  }
  ADD_FAILURE() << "no failure";
  return Failure{0, ""};
}

Image pattern(int32_t w, int32_t h, int32_t c) {
  return tool_test::make_image(w, h, c, [](int y, int x, int k) { return (y * 37 + x * 11 + k * 71) & 255; });
}

bool same(const Image &a, const Image &b) {
  return a.width == b.width && a.height == b.height && a.channels == b.channels && a.pixels == b.pixels;
}

}  // namespace

TEST(ImageFiles, PngRoundTripsEveryChannelLayout) {
  Scratch dir;
  for (int32_t c = 1; c <= 4; ++c) {
    Image im = pattern(13, 7, c);
    std::string path = dir.path(std::to_string(c) + "channels.png");
    sorn::tool::write_image(path, im);
    EXPECT_TRUE(same(sorn::tool::read_image(path), im)) << c << " channels";
  }
}

TEST(ImageFiles, PgmAndPpmRoundTrip) {
  Scratch dir;
  Image grey = pattern(9, 5, 1), rgb = pattern(9, 5, 3);
  sorn::tool::write_image(dir.path("g.pgm"), grey);
  sorn::tool::write_image(dir.path("c.PPM"), rgb);
  EXPECT_TRUE(same(sorn::tool::read_image(dir.path("g.pgm")), grey));
  EXPECT_TRUE(same(sorn::tool::read_image(dir.path("c.PPM")), rgb));
  EXPECT_EQ(tool_test::read_file(dir.path("g.pgm")).substr(0, 3), "P5\n");
}

TEST(ImageFiles, PngToPgmToPngKeepsEveryByte) {
  Scratch dir;
  Image im = pattern(31, 17, 1);
  sorn::tool::write_image(dir.path("a.png"), im);
  sorn::tool::write_image(dir.path("b.pgm"), sorn::tool::read_image(dir.path("a.png")));
  sorn::tool::write_image(dir.path("c.png"), sorn::tool::read_image(dir.path("b.pgm")));
  EXPECT_TRUE(same(sorn::tool::read_image(dir.path("c.png")), im));
}

TEST(ImageFiles, GreyWrittenAsPpmBecomesThreeEqualChannels) {
  Scratch dir;
  Image grey = pattern(4, 3, 1);
  sorn::tool::write_image(dir.path("g.ppm"), grey);
  Image back = sorn::tool::read_image(dir.path("g.ppm"));
  ASSERT_EQ(back.channels, 3);
  EXPECT_EQ(back.at(2, 3, 0), grey.at(2, 3));
  EXPECT_EQ(back.at(2, 3, 2), grey.at(2, 3));
}

TEST(ImageFiles, AsciiPnmWithCommentsAndSmallRangeIsStretched) {
  Scratch dir;
  tool_test::write_file(dir.path("a.pgm"), "P2\n# a comment\n3 2\n# another\n15\n0 15 7\n1 2 3\n");
  Image im = sorn::tool::read_image(dir.path("a.pgm"));
  ASSERT_EQ(im.width, 3);
  ASSERT_EQ(im.height, 2);
  EXPECT_EQ(im.at(0, 0), 0);
  EXPECT_EQ(im.at(0, 1), 255);
  EXPECT_EQ(im.at(0, 2), (7 * 255 + 7) / 15);
  tool_test::write_file(dir.path("a.ppm"), "P3 1 1 255 10 20 30");
  Image c = sorn::tool::read_image(dir.path("a.ppm"));
  EXPECT_EQ(c.channels, 3);
  EXPECT_EQ(c.at(0, 0, 2), 30);
}

TEST(ImageFiles, PalettesAndTransparencyAreExpanded) {
  Scratch dir;
  tool_test::write_palette_png(dir.path("p.png"), 5, 4, false);
  Image rgb = sorn::tool::read_image(dir.path("p.png"));
  ASSERT_EQ(rgb.channels, 3);
  EXPECT_EQ(rgb.at(0, 1, 0), 200);  // index 1
  tool_test::write_palette_png(dir.path("t.png"), 5, 4, true);
  Image rgba = sorn::tool::read_image(dir.path("t.png"));
  ASSERT_EQ(rgba.channels, 4);
  EXPECT_EQ(rgba.at(0, 3, 3), 128);  // index 3, half transparent
  EXPECT_EQ(rgba.at(0, 0, 3), 255);
}

TEST(ImageFiles, InterlacedPngIsReadWhole) {
  Scratch dir;
  Image im = pattern(19, 13, 3);
  tool_test::write_interlaced_png(dir.path("i.png"), im);
  EXPECT_TRUE(same(sorn::tool::read_image(dir.path("i.png")), im));
}

TEST(ImageFiles, MissingFileNamesFileAndReason) {
  Failure f = failure_of([] { sorn::tool::read_image("/nonexistent/x.png"); });
  EXPECT_EQ(f.code, 1);
  EXPECT_EQ(f.message, "/nonexistent/x.png: cannot open: No such file or directory");
}

TEST(ImageFiles, DirectoryIsUnreadable) {
  Scratch dir;
  std::string d = dir.path("");
  Failure f = failure_of([&] { sorn::tool::read_image(d); });
  EXPECT_EQ(f.code, 1);
  EXPECT_NE(f.message.find("cannot read: Is a directory"), std::string::npos) << f.message;
}

TEST(ImageFiles, EmptyAndForeignFilesAreRefused) {
  Scratch dir;
  tool_test::write_file(dir.path("empty.png"), "");
  tool_test::write_file(dir.path("text.png"), "hello");
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("empty.png")); }).message,
            dir.path("empty.png") + ": file is empty");
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("text.png")); }).message,
            dir.path("text.png") + ": not a PNG, PGM or PPM image");
}

TEST(ImageFiles, TruncatedPngIsReportedAsSuch) {
  Scratch dir;
  sorn::tool::write_image(dir.path("a.png"), pattern(40, 30, 3));
  std::string bytes = tool_test::read_file(dir.path("a.png"));
  for (size_t keep : {size_t(10), size_t(40), bytes.size() / 2, bytes.size() - 13}) {
    tool_test::write_file(dir.path("t.png"), bytes.substr(0, keep));
    Failure f = failure_of([&] { sorn::tool::read_image(dir.path("t.png")); });
    EXPECT_EQ(f.code, 1);
    EXPECT_EQ(f.message.rfind(dir.path("t.png") + ": corrupt or truncated PNG", 0), 0u) << f.message;
  }
}

TEST(ImageFiles, CorruptPngIsReported) {
  Scratch dir;
  sorn::tool::write_image(dir.path("a.png"), pattern(40, 30, 3));
  std::string bytes = tool_test::read_file(dir.path("a.png"));
  // A byte of the image data: its chunk's checksum no longer matches.
  size_t idat = bytes.find("IDAT");
  ASSERT_NE(idat, std::string::npos);
  bytes[idat + 10] = char(bytes[idat + 10] ^ 0x5a);
  tool_test::write_file(dir.path("c.png"), bytes);
  Failure f = failure_of([&] { sorn::tool::read_image(dir.path("c.png")); });
  EXPECT_EQ(f.code, 1);
  EXPECT_NE(f.message.find("corrupt or truncated PNG"), std::string::npos) << f.message;
}

TEST(ImageFiles, SixteenBitImagesAreRefused) {
  Scratch dir;
  tool_test::write_png16(dir.path("d.png"), 4, 4);
  Failure f = failure_of([&] { sorn::tool::read_image(dir.path("d.png")); });
  EXPECT_EQ(f.code, 1);
  EXPECT_NE(f.message.find("unsupported bit depth 16"), std::string::npos) << f.message;
  tool_test::write_file(dir.path("d.pgm"), std::string("P5 1 1 65535\n") + std::string(2, '\0'));
  f = failure_of([&] { sorn::tool::read_image(dir.path("d.pgm")); });
  EXPECT_NE(f.message.find("unsupported bit depth 16"), std::string::npos) << f.message;
}

TEST(ImageFiles, TruncatedAndCorruptPnm) {
  Scratch dir;
  tool_test::write_file(dir.path("t.pgm"), "P5 4 4 255\n" + std::string(10, 'x'));
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("t.pgm")); }).message,
            dir.path("t.pgm") + ": file ends too early (truncated pixel data)");
  tool_test::write_file(dir.path("h.pgm"), "P5 4");
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("h.pgm")); }).message,
            dir.path("h.pgm") + ": file ends too early (truncated header)");
  tool_test::write_file(dir.path("w.pgm"), "P5 x 4 255\n");
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("w.pgm")); }).message,
            dir.path("w.pgm") + ": corrupt PNM header (bad width)");
  tool_test::write_file(dir.path("z.pgm"), "P5 0 4 255\n");
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("z.pgm")); }).message,
            dir.path("z.pgm") + ": image has no pixels");
  tool_test::write_file(dir.path("big.pgm"), "P5 100000 100000 255\n");
  EXPECT_NE(failure_of([&] { sorn::tool::read_image(dir.path("big.pgm")); }).message.find("image too large"),
            std::string::npos);
  tool_test::write_file(dir.path("v.pgm"), "P2 1 1 10 11");
  EXPECT_EQ(failure_of([&] { sorn::tool::read_image(dir.path("v.pgm")); }).message,
            dir.path("v.pgm") + ": corrupt PNM pixel value 11");
}

TEST(ImageFiles, OutputFormatComesFromTheName) {
  EXPECT_EQ(sorn::tool::format_for_output("a.png"), sorn::tool::Format::Png);
  EXPECT_EQ(sorn::tool::format_for_output("dir.x/a.Pgm"), sorn::tool::Format::Pgm);
  Failure f = failure_of([] { sorn::tool::format_for_output("a.jpg"); });
  EXPECT_EQ(f.code, 2);
  EXPECT_EQ(f.message, "a.jpg: unknown image format '.jpg' (use a name ending in .png, .pgm or .ppm)");
  EXPECT_EQ(failure_of([] { sorn::tool::format_for_output("dir.png/a"); }).code, 2);
}

TEST(ImageFiles, LayoutsThatAFormatCannotHoldAreRefused) {
  Scratch dir;
  Failure f = failure_of([&] { sorn::tool::write_image(dir.path("a.pgm"), pattern(2, 2, 3)); });
  EXPECT_EQ(f.code, 1);
  EXPECT_EQ(f.message, dir.path("a.pgm") + ": PGM holds grey images only, this one is RGB (write .png or .ppm)");
  f = failure_of([&] { sorn::tool::write_image(dir.path("a.ppm"), pattern(2, 2, 4)); });
  EXPECT_EQ(f.message, dir.path("a.ppm") + ": PPM has no alpha channel, this image is RGBA (write .png)");
}

TEST(ImageFiles, UnwritableDestinationIsReported) {
  Failure f = failure_of([] { sorn::tool::write_image("/nonexistent/a.png", pattern(2, 2, 1)); });
  EXPECT_EQ(f.code, 1);
  EXPECT_EQ(f.message, "/nonexistent/a.png: cannot create: No such file or directory");
}

TEST(ImageConversions, GreyFromEachLayout) {
  Image rgb = tool_test::make_image(2, 1, 3, [](int, int x, int k) { return x ? (k == 0 ? 255 : 0) : 100; });
  Image g = sorn::tool::to_grey(rgb);
  ASSERT_EQ(g.channels, 1);
  EXPECT_EQ(g.at(0, 0), 100);
  EXPECT_EQ(g.at(0, 1), (299 * 255 + 500) / 1000);
  Image ga = tool_test::make_image(2, 1, 2, [](int, int x, int k) { return k ? 7 : 50 + x; });
  EXPECT_EQ(sorn::tool::to_grey(ga).at(0, 1), 51);
  EXPECT_EQ(sorn::tool::channel_plane(ga, 1).at(0, 0), 7);
}

TEST(DefaultPicture, IsTheSameOnEveryRun) {
  Image a = sorn::tool::default_picture(), b = sorn::tool::default_picture();
  EXPECT_EQ(a.width, 320);
  EXPECT_EQ(a.height, 240);
  EXPECT_EQ(a.channels, 3);
  EXPECT_TRUE(same(a, b));
  // FNV-1a over all bytes, pinned: a change of the picture changes the
  // README's demo output too.
  uint64_t h = 1469598103934665603ull;
  for (uint8_t v : a.pixels) h = (h ^ v) * 1099511628211ull;
  EXPECT_EQ(h, 10272817034710212275ull) << "FNV-1a of the default picture";
}

TEST(LibraryStatus, NamedBySymbol) {
  EXPECT_EQ(sorn::tool::status_name(SORN_ENOSPC), "SORN_ENOSPC");
  EXPECT_EQ(sorn::tool::status_name(SORN_EINVAL), "SORN_EINVAL");
  EXPECT_EQ(sorn::tool::status_name(SORN_OK), "SORN_OK");
  EXPECT_EQ(sorn::tool::status_name(-7), "status -7");
  Failure f = failure_of([] { sorn::tool::check_status(SORN_ENOSPC, "SornAdd"); });
  EXPECT_EQ(f.code, 1);
  EXPECT_EQ(f.message, "SornAdd: SORN_ENOSPC (empty region of interest)");
  sorn::tool::check_status(5, "a positive count is no failure");
}

TEST(LibraryStatus, AnEmptyRegionFromTheLibraryIsShownWithItsSymbol) {
  // A zero-width destination record: the library answers SORN_ENOSPC.
  Image a = pattern(4, 4, 1);
  SornArray ra = sorn::tool::array_of(a);
  SornVolume roi = {{0, 0, 0, 0}, {1, 0, 4, 1}};
  sorn::tool::Env env;
  SornStatus st = SornAdd(env.get(), 0, &ra, &ra, &ra, &roi, nullptr, nullptr, 0, 0);
  EXPECT_EQ(sorn::tool::status_name(st), "SORN_ENOSPC");
}
#endif
