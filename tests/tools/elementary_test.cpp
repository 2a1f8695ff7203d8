// Elementary streams that encoders do not write, or that nobody should: slices of headers alone.
#include <gtest/gtest.h>
#include <pevrin/sample_buffer_data.h>

#include <algorithm>
#include <random>

#include "elementary/elementary_video.hpp"
#include "elementary/picture_order.hpp"
#include "tests/codecs/h264_samples.hpp"

namespace {

using namespace test;
using Numbers = std::vector<int64_t>;

constexpr uint8_t kIDR = 0x65, kReference = 0x41, kUnused = 0x01;

// A picture parameter set whose slices tell how often they are coded.
Bytes pictureSet() {
  BitWriter to;
  to.bits(0x68, 8).ue(0).ue(0).bits(0, 2).ue(0).ue(0).ue(0).bits(0, 3).se(0).se(0).se(0);
  return to.flag(false).flag(false).flag(true).unit();
}

struct Slice {
  uint8_t header = kReference;
  uint32_t frameNum = 0, lsb = 0;
  char field = 0;  // 't' or 'b'
  uint32_t firstMb = 0, redundant = 0;
  bool forgets = false;

  Bytes unit(const SPSFields& sps) const {
    BitWriter to;
    to.bits(header, 8).ue(firstMb).ue(7).ue(0).bits(frameNum, 4);
    if (!sps.frameMbsOnly) to.flag(field != 0);
    if (field) to.flag(field == 'b');
    if (header == kIDR) to.ue(0);
    if (sps.pocType == 0) to.bits(lsb, 6);
    if (sps.pocType == 1) to.se(0);
    to.ue(redundant);
    if (header == kIDR) to.bits(0, 2);
    if (header == kReference) {
      to.flag(forgets);
      if (forgets) to.ue(5).ue(0);
    }
    return to.bits(0x5A5A5A, 24).unit();
  }
};

// Start codes of three and of four bytes by turns.
Bytes join(const std::vector<Bytes>& units) {
  Bytes stream;
  for (const Bytes& unit : units) {
    if (stream.size() % 2) stream.push_back(0);
    stream.insert(stream.end(), {0, 0, 1});
    stream.insert(stream.end(), unit.begin(), unit.end());
  }
  return stream;
}

Bytes streamOf(const SPSFields& sps, const std::vector<Slice>& slices) {
  std::vector<Bytes> units = {sps.unit(), pictureSet()};
  for (const Slice& slice : slices) units.push_back(slice.unit(sps));
  return join(units);
}

ElementaryVideo read(const Bytes& stream, Codec codec = Codec::H264) {
  br::Ref<PVBlockBuffer> bytes;
  auto* data = const_cast<uint8_t*>(stream.data());
  if (!stream.empty())
    PVBlockBufferCreateWithMemoryBlock(nullptr, data, stream.size(), kBRAllocatorNull, nullptr, 0,
                                       stream.size(), 0, bytes.out());
  return ElementaryVideo(std::move(bytes), codec, FrameRate{25, 1});
}

// When each is shown, counted from the first that is.
Numbers shown(const ElementaryVideo& video) {
  EXPECT_FALSE(video.damage()) << video.damage()->message;
  Numbers times;
  for (uint64_t i = 0; i < video.sampleCount(); ++i)
    times.push_back(video.sample(i).composition - video.firstShown());
  return times;
}

TEST(ElementaryVideo, FieldsOfAFrameAreOneSample) {
  const SPSFields sps{.frameMbsOnly = false};
  const Bytes stream = streamOf(sps, {{kIDR, 0, 0, 't'},
                                      {kReference, 0, 1, 'b'},
                                      {kReference, 1, 8, 't'},
                                      {kReference, 1, 9, 'b'},
                                      {kUnused, 2, 4, 't'},
                                      {kUnused, 2, 5, 'b'},
                                      {kUnused, 2, 6, 't'},  // without its other field
                                      {kReference, 3, 12}});
  const ElementaryVideo video = read(stream);
  EXPECT_EQ(shown(video), (Numbers{0, 3, 1, 2, 4}));
  EXPECT_TRUE(video.sample(0).sync);
  EXPECT_FALSE(video.sample(1).sync);
  EXPECT_EQ(video.sample(1).dependencies.isDependedOn, 1);
  EXPECT_EQ(video.sample(2).dependencies.isDependedOn, 2);
  const auto bytes = [&](const Slice& slice) { return static_cast<int64_t>(4 + slice.unit(sps).size()); };
  EXPECT_EQ(video.sample(2).size, bytes({kUnused, 2, 4, 't'}) + bytes({kUnused, 2, 5, 'b'}));
}

// Its second field then counts from 0 (7.4.3).
TEST(ElementaryVideo, AFieldThatForgetsReferencesHasItsOtherField) {
  const SPSFields sps{.frameMbsOnly = false};
  const Slice forgetting{.header = kReference, .frameNum = 3, .lsb = 12, .field = 't', .forgets = true};
  EXPECT_EQ(shown(read(streamOf(sps, {{kIDR}, forgetting, {kReference, 0, 1, 'b'}, {kReference, 1, 4}}))),
            (Numbers{0, 1, 2}));
}

// Each is to be shown before all that came before it, which no decoder could wait for.
TEST(ElementaryVideo, NoMorePicturesWaitThanDecodersKeep) {
  std::vector<Slice> slices = {{kIDR}};
  for (uint32_t i = 1; i < 100; ++i) slices.push_back({kReference, i % 16, (64 * 2 - i) % 64});
  const ElementaryVideo video = read(streamOf({}, slices));
  Numbers times = shown(video);
  EXPECT_EQ(video.firstShown(), 32);
  std::ranges::sort(times);
  ASSERT_EQ(times.size(), 100u);
  for (size_t i = 0; i < times.size(); ++i) ASSERT_EQ(times[i], static_cast<int64_t>(i));
}

TEST(ElementaryVideo, SlicesOfAPictureAreOneSample) {
  const SPSFields sps{};
  const auto slice = [&](const Slice& one) { return one.unit(sps); };
  const Bytes delimiter = {0x09, 0xF0}, message = {0x06, 0x05, 0x01, 0xAA, 0x80}, endOfSequence = {0x0A};
  const Bytes stream =
      join({delimiter, sps.unit(), pictureSet(), message, slice({kIDR}),
            slice({.header = kIDR, .firstMb = 6}), slice({.header = kIDR, .redundant = 1}), message,
            slice({kReference, 1, 2}), slice({.header = kReference, .frameNum = 1, .lsb = 2, .firstMb = 3}),
            delimiter, slice({kUnused, 2, 4}), sps.unit(), slice({kIDR}), endOfSequence, message});
  const ElementaryVideo video = read(stream);
  EXPECT_EQ(shown(video), (Numbers{0, 1, 2, 3}));
  EXPECT_EQ(video.sample(0).dependencies.hasRedundancy, 1);
  EXPECT_EQ(video.sample(1).dependencies.hasRedundancy, 0);
  br::Ref<PVSampleBuffer> sample;
  ASSERT_EQ(video.create(3, sample.out()), 0);
  Bytes data(PVBlockBufferGetDataLength(PVSampleBufferGetDataBuffer(sample.get())));
  PVBlockBufferCopyDataBytes(PVSampleBufferGetDataBuffer(sample.get()), 0, data.size(), data.data());
  Bytes expected = {0, 0, 0, static_cast<uint8_t>(slice({kIDR}).size())};
  for (const Bytes& unit : {slice({kIDR}), Bytes{0, 0, 0, 1}, endOfSequence})
    expected.insert(expected.end(), unit.begin(), unit.end());
  EXPECT_EQ(data, expected);  // the set is in the description, the message belongs to nothing
}

TEST(ElementaryVideo, OrderIsThatOfThePictureOrderCounts) {
  const SPSFields wraps{};  // counts of 6 bits
  std::vector<Slice> slices = {{kIDR}};
  for (uint32_t i = 1; i < 100; i += 2) {
    slices.push_back({kReference, (i + 1) / 2 % 16, (2 * i + 2) % 64});
    slices.push_back({kUnused, (i + 3) / 2 % 16, 2 * i % 64});
  }
  const Numbers times = shown(read(streamOf(wraps, slices)));
  for (size_t i = 1; i < times.size(); ++i)
    ASSERT_EQ(times[i], static_cast<int64_t>(i % 2 ? i + 1 : i - 1)) << i;
  // Numbers begin anew behind a picture that forgets all references, and behind IDR pictures.
  EXPECT_EQ(shown(read(streamOf(wraps, {{kIDR},
                                        {kReference, 1, 8},
                                        {kUnused, 2, 4},
                                        {.header = kReference, .frameNum = 2, .lsb = 10, .forgets = true},
                                        {kReference, 1, 6},
                                        {kUnused, 2, 2},
                                        {kIDR},
                                        {kReference, 1, 2}}))),
            (Numbers{0, 2, 1, 3, 5, 4, 6, 7}));
  // Type 2: the order is that of decoding, whatever the numbers' wraps. 20 frames, numbers of 4 bits.
  slices = {{kIDR}};
  for (uint32_t i = 1; i < 20; ++i) slices.push_back({kReference, i % 16});
  Numbers inOrder(20);
  for (size_t i = 0; i < inOrder.size(); ++i) inOrder[i] = static_cast<int64_t>(i);
  EXPECT_EQ(shown(read(streamOf({.pocType = 2}, slices))), inOrder);
}

// ITU-T H.264 8.2.1.2, worked out by hand: a cycle of two reference frames, 4 and 6 apart, and others 3
// before.
TEST(PictureOrder, FollowsTheCycle) {
  KivH264ParsedSPS sps{};
  sps.picOrderCntType = 1;
  sps.log2MaxFrameNum = 4;
  KivH264PicOrderCntCycle cycle{};
  cycle.offsetForNonRefPic = -3;
  cycle.offsetForTopToBottomField = 1;
  cycle.numRefFrames = 2;
  cycle.offsetForRefFrame[0] = 4;
  cycle.offsetForRefFrame[1] = 6;
  H264PictureOrder order;
  const auto next = [&](uint8_t type, uint8_t refIDC, uint32_t frameNum, int32_t delta = 0,
                        bool bottomField = false) {
    KivH264SlicePicture picture{};
    picture.nalUnitType = type;
    picture.nalRefIDC = refIDC;
    picture.frameNum = frameNum;
    picture.deltaPicOrderCnt[0] = delta;
    picture.fieldPic = picture.bottomField = bottomField;
    return order.next(picture, sps, cycle);
  };
  EXPECT_EQ(next(5, 1, 0), 0);
  EXPECT_EQ(next(1, 1, 1), 4);
  EXPECT_EQ(next(1, 0, 2), 1);  // as the reference before it, less 3
  EXPECT_EQ(next(1, 1, 2), 10);
  EXPECT_EQ(next(1, 1, 3, -2), 12);
  EXPECT_EQ(next(1, 1, 3, 0, true), 15);
  EXPECT_EQ(next(1, 1, 1), 84);  // frame 17
  EXPECT_EQ(next(5, 1, 0), 0);
}

TEST(ElementaryVideo, TellsWhatIsWrongAndWhere) {
  const SPSFields sps{};
  const Bytes good = streamOf(sps, {{kIDR}, {kReference, 1, 2}});
  EXPECT_NE(read({}).damage()->message.find("empty"), std::string::npos);
  EXPECT_NE(read(Bytes(100, 0)).damage(), std::nullopt);
  EXPECT_NE(read(good, Codec::HEVC).damage(), std::nullopt);
  EXPECT_NE(read(join({sps.unit(), Slice{kIDR}.unit(sps)})).damage()->message.find("parameter sets"),
            std::string::npos);
  Bytes broken = good;
  broken.insert(broken.end(), {0, 0, 1, 0x41, 0xE8});  // refers to set 3
  EXPECT_EQ(read(broken).damage()->offset, static_cast<int64_t>(broken.size()) - 2);
  // Slices before the sets are left out.
  Bytes late = join({Slice{kIDR}.unit(sps), Slice{kReference, 1, 2}.unit(sps)});
  late.insert(late.end(), good.begin(), good.end());
  EXPECT_EQ(shown(read(late)), (Numbers{0, 1}));
  EXPECT_EQ(read(late).picturesLeftOut(), 1u);
  std::vector<Bytes> many(70000, Bytes{0x0C, 0xFF});  // filler
  many.insert(many.begin(), {sps.unit(), pictureSet(), Slice{kIDR}.unit(sps)});
  EXPECT_NE(read(join(many)).damage()->message.find("65,536"), std::string::npos);
}

TEST(ElementaryVideo, SurvivesCutsAndNoise) {
  const SPSFields sps{.frameMbsOnly = false};
  const Bytes stream =
      streamOf(sps, {{kIDR, 0, 0, 't'}, {kReference, 0, 1, 'b'}, {kReference, 1, 8}, {kUnused, 2, 4}});
  for (size_t length = 0; length <= stream.size(); ++length) {
    const Bytes cut(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(length));
    const ElementaryVideo video = read(cut);
    EXPECT_TRUE(video.damage() || (video.sampleCount() > 0 && video.sampleCount() <= 3)) << length;
  }
  std::mt19937 draw(1);
  for (int round = 0; round < 2000; ++round) {
    Bytes bent = stream;
    for (int i = 0; i < 4; ++i) bent[draw() % bent.size()] = static_cast<uint8_t>(draw());
    const ElementaryVideo video = read(bent, round % 4 ? Codec::H264 : Codec::HEVC);
    for (uint64_t i = 0; !video.damage() && i < video.sampleCount(); ++i) {
      br::Ref<PVSampleBuffer> sample;
      ASSERT_EQ(video.create(i, sample.out()), 0);
      ASSERT_EQ(static_cast<int64_t>(PVBlockBufferGetDataLength(PVSampleBufferGetDataBuffer(sample.get()))),
                video.sample(i).size);
      ASSERT_GE(video.sample(i).composition, video.sample(i).decode);
    }
  }
}

TEST(FrameRate, IsAFractionOrADecimalNumber) {
  const auto is = [](const char* text, int32_t count, int32_t seconds) {
    const auto rate = parseFrameRate(text);
    return rate && rate->count == count && rate->seconds == seconds;
  };
  EXPECT_TRUE(is("25", 25, 1));
  EXPECT_TRUE(is("30000/1001", 30000, 1001));
  EXPECT_TRUE(is("50/2", 25, 1));
  EXPECT_TRUE(is("12.5", 25, 2));
  EXPECT_TRUE(is("29.97", 2997, 100));
  for (const char* text :
       {"", "0", "-1", "1/0", "0/1", "25fps", "1e3", "/", "1/", ".5", "1.", "3000000000", "1/2/3"})
    EXPECT_EQ(parseFrameRate(text), std::nullopt) << text;
}

}  // namespace
