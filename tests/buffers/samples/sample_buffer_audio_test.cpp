// Audio sample buffers: creation by packets, buffer lists, PCM copies, packet descriptions.
#include <pevrin/sample_buffer_audio.h>
#include <array>

#include "tests/buffers/samples/samples.hpp"

namespace {

using namespace test;
using Packets = std::vector<AudioStreamPacketDescription>;

PVStatus create(const AudioStreamBasicDescription& stream, int64_t count, const Packets& packets, Sample& out,
                Block data = nullptr, BRAllocatorRef allocator = nullptr) {
  return PVAudioSampleBufferCreateReadyWithPacketDescriptions(
      allocator, data.get(), audioFormat(stream).get(), count, at(100, 48000),
      packets.empty() ? nullptr : packets.data(), out.out());
}

Sample make(const AudioStreamBasicDescription& stream, int64_t count, const Packets& packets = {},
            Block data = nullptr) {
  Sample sample;
  EXPECT_EQ(create(stream, count, packets, sample, std::move(data)), 0);
  return sample;
}

Packets packetsOf(const Sample& sample) {
  size_t bytes = 0;
  EXPECT_EQ(PVSampleBufferGetAudioStreamPacketDescriptions(sample.get(), 0, nullptr, &bytes), 0);
  Packets packets(bytes / sizeof packets[0]);
  EXPECT_EQ(PVSampleBufferGetAudioStreamPacketDescriptions(sample.get(), bytes, packets.data(), nullptr), 0);
  return packets;
}

// A list of up to two buffers.
struct List {
  explicit List(uint32_t count, uint32_t channels, uint32_t bytes) : storage{} {
    get()->numberBuffers = count;
    for (uint32_t i = 0; i < count; ++i) buffers()[i] = {channels, bytes, memory[i].data()};
  }
  List() : storage{} {}
  AudioBufferList* get() { return reinterpret_cast<AudioBufferList*>(storage.data()); }
  AudioBuffer* buffers() { return get()->buffers; }
  alignas(8) std::array<char, 40> storage;
  std::array<std::array<uint8_t, 256>, 2> memory{};
};

TEST(AudioSampleBuffer, OfPackets) {
  const Sample pcm = make(kStereo16, 48000);
  EXPECT_EQ(PVSampleBufferGetDuration(pcm.get()), at(48000, 48000));
  EXPECT_EQ(PVSampleBufferGetTotalSampleSize(pcm.get()), 192000u);
  int64_t entries;
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfoArray(pcm.get(), 0, nullptr, &entries), 0);
  EXPECT_EQ(entries, 1);
  EXPECT_EQ(PVSampleBufferGetSampleSizeArray(make(kPlanarStereo16, 10).get(), 0, nullptr, &entries), -12735);

  const Packets together{{0, 0, 5}, {5, 0, 7}}, apart{{0, 0, 5}, {6, 0, 7}};
  const Sample aac = make(kAAC, 2, together);
  EXPECT_EQ(PVSampleBufferGetSampleSize(aac.get(), 1), 7u);
  EXPECT_EQ(PVSampleBufferGetDuration(aac.get()), at(2048, 48000));
  EXPECT_EQ(PVSampleBufferGetSampleSizeArray(make(kAAC, 2, apart).get(), 0, nullptr, &entries), -12735);
  EXPECT_EQ(PVSampleBufferGetTotalSampleSize(make(kAAC, 2, apart).get()), 12u) << "from the packets";

  const Sample varying = make(kVorbisLike, 3, {{0, 960, 5}, {5, 480, 7}, {12, 120, 1}});
  EXPECT_EQ(PVSampleBufferGetDuration(varying.get()), at(1560, 48000));
  PVSampleTimingInfo info;
  ASSERT_EQ(PVSampleBufferGetSampleTimingInfo(varying.get(), 2, &info), 0);
  EXPECT_EQ(info, (PVSampleTimingInfo{at(120, 48000), at(1540, 48000), kPVTimeInvalid}));
}

TEST(AudioSampleBuffer, RefusesWhatCannotBe) {
  Sample sample;
  EXPECT_EQ(create(kAAC, 0, {}, sample), -12738);
  EXPECT_EQ(create(kAAC, 2, {}, sample), -12731);
  EXPECT_EQ(create(kVorbisLike, 2, {}, sample), -12731);
  AudioStreamBasicDescription framesVary = kAAC;
  framesVary.framesPerPacket = 0, framesVary.bytesPerPacket = 4;
  EXPECT_EQ(create(framesVary, 2, {}, sample), -12731);
  const auto with = [&](const Format& format, PVTime when) {
    return PVAudioSampleBufferCreateReadyWithPacketDescriptions(nullptr, nullptr, format.get(), 1, when,
                                                                nullptr, sample.out());
  };
  EXPECT_EQ(with(nullptr, at(0)), -12731);
  EXPECT_EQ(with(videoFormat(), at(0)), -12731);
  EXPECT_EQ(with(audioFormat(kStereo16), kPVTimeIndefinite), -12740);
  EXPECT_FALSE(sample);
  walkAllocationFailures([](BRAllocatorRef allocator) {
    Sample made;
    return create(kAAC, 2, {{0, 0, 5}, {5, 0, 7}}, made, nullptr, allocator) ? Outcome::kOutOfMemory
                                                                             : Outcome::kSucceeded;
  });
}

TEST(AudioSampleBuffer, PacketDescriptionsFollowFromSizesAndTimes) {
  const Sample aac = test::make({.samples = 2, .sizes = {5, 7}, .format = audioFormat(kAAC)});
  const Packets packets = packetsOf(aac);
  ASSERT_EQ(packets.size(), 2u);
  EXPECT_EQ(packets[1].startOffset, 5);
  EXPECT_EQ(packets[1].dataByteSize, 7u);
  EXPECT_EQ(packets[1].variableFramesInPacket, 0u);
  EXPECT_EQ(PVSampleBufferGetAudioStreamPacketDescriptions(aac.get(), 31, Packets(2).data(), nullptr),
            -12737);

  const Sample varying = test::make({.samples = 2,
                                     .timing = {{at(1, 50), at(0), {}}, {at(1, 64), at(0), {}}},
                                     .sizes = {9},
                                     .format = audioFormat(kVorbisLike)});
  EXPECT_EQ(packetsOf(varying)[0].variableFramesInPacket, 960u);
  EXPECT_EQ(packetsOf(varying)[1].variableFramesInPacket, 750u);
  EXPECT_TRUE(packetsOf(make(kStereo16, 4)).empty());

  const auto statusOf = [](const Given& given) {
    size_t size;
    return PVSampleBufferGetAudioStreamPacketDescriptionsPtr(test::make(given).get(), nullptr, &size);
  };
  EXPECT_EQ(statusOf({.format = videoFormat()}), -12741);
  EXPECT_EQ(statusOf({}), -12741);
  EXPECT_EQ(statusOf({.sizes = {4}, .format = audioFormat(kVorbisLike)}), -12736);
  EXPECT_EQ(statusOf({.format = audioFormat(kAAC)}), -12735);
  EXPECT_EQ(
      statusOf(
          {.timing = {{kPVTimeIndefinite, at(0), {}}}, .sizes = {4}, .format = audioFormat(kVorbisLike)}),
      -12740);
  EXPECT_EQ(statusOf({.samples = 2, .sizes = {4, size_t{1} << 32}, .format = audioFormat(kAAC)}), -12738);
  EXPECT_EQ(PVSampleBufferGetAudioStreamPacketDescriptionsPtr(aac.get(), nullptr, nullptr), -12731);
}

TEST(AudioSampleBuffer, ListPointsAtTheDataWhereItCan) {
  List list;
  size_t needed = 0;
  Block block;
  const auto get = [&](const Sample& sample, size_t size, uint32_t flags = 0) {
    return PVSampleBufferGetAudioBufferListWithRetainedBlockBuffer(sample.get(), &needed, list.get(), size,
                                                                   nullptr, nullptr, flags, block.out());
  };
  const Block data = blockOf(40);
  const Sample planar = make(kPlanarStereo16, 10, {}, data);
  EXPECT_EQ(get(planar, 24), -12737);
  EXPECT_EQ(needed, 40u);
  ASSERT_EQ(get(planar, 40), 0);
  EXPECT_EQ(block.get(), data.get());
  ASSERT_EQ(list.get()->numberBuffers, 2u);
  EXPECT_EQ(list.buffers()[1].dataByteSize, 20u);
  EXPECT_EQ(*static_cast<uint8_t*>(list.buffers()[1].data), 20);

  // 20 is no multiple of 16: the second plane moves
  ASSERT_EQ(get(planar, 40, kPVSampleBufferFlag_AudioBufferList_Assure16ByteAlignment), 0);
  EXPECT_NE(block.get(), data.get());
  for (uint32_t i = 0; i < 2; ++i) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(list.buffers()[i].data) % 16, 0u);
    EXPECT_EQ(*static_cast<uint8_t*>(list.buffers()[i].data), 20 * i);
  }
  // in pieces of 13 bytes neither plane is whole
  ASSERT_EQ(get(make(kPlanarStereo16, 10, {}, blockOf(40, 13)), 40), 0);
  EXPECT_EQ(static_cast<uint8_t*>(list.buffers()[1].data)[19], 39);

  ASSERT_EQ(get(make(kStereo16, 10, {}, data), 24), 0);
  EXPECT_EQ(list.buffers()[0].numberChannels, 2u);
  EXPECT_EQ(list.buffers()[0].dataByteSize, 40u);
  EXPECT_EQ(get(make(kStereo16, 10), 24), -12733);
  EXPECT_FALSE(block);
  EXPECT_EQ(get(test::make({.format = videoFormat()}), 24), -12710);
  AudioStreamBasicDescription mute = kPlanarStereo16;
  mute.channelsPerFrame = 0;
  EXPECT_EQ(get(make(mute, 10), 24), -12743);
}

TEST(AudioSampleBuffer, CopiesFramesOfEachPlane) {
  const Sample planar = make(kPlanarStereo16, 10, {}, blockOf(40, 7)),
               packed = make(kStereo16, 10, {}, blockOf(40, 7));
  List two(2, 1, 6), one(1, 2, 12);
  const auto copy = [](const Sample& sample, int32_t offset, int32_t count, List& list) {
    return PVSampleBufferCopyPCMDataIntoAudioBufferList(sample.get(), offset, count, list.get());
  };
  ASSERT_EQ(copy(planar, 4, 3, two), 0);
  EXPECT_EQ(two.memory[0][0], 8);
  EXPECT_EQ(two.memory[1][5], 33);
  ASSERT_EQ(copy(packed, 4, 3, one), 0);
  EXPECT_EQ(one.memory[0][11], 27);
  EXPECT_EQ(copy(planar, 10, 0, two), -12734);
  EXPECT_EQ(copy(planar, 8, 3, two), -12734);
  EXPECT_EQ(copy(planar, -1, 3, two), -12734);
  EXPECT_EQ(copy(planar, 4, 0, two), -12731);
  EXPECT_EQ(copy(planar, 4, 2, two), -12731) << "the room is for 3";
  two.memory[0][0] = 99;
  EXPECT_EQ(copy(packed, 4, 3, two), 0) << "another number of buffers: nothing happens";
  EXPECT_EQ(two.memory[0][0], 99);
  two.buffers()[1].data = nullptr;
  EXPECT_EQ(copy(planar, 4, 3, two), -12731);
  EXPECT_EQ(copy(make(kAAC, 1, {{0, 0, 4}}, blockOf(4)), 0, 1, one), -12742);
  EXPECT_EQ(copy(test::make({.format = videoFormat()}), 0, 1, one), -12741);
  EXPECT_EQ(copy(make(kStereo16, 10), 0, 3, one), -12733);
}

TEST(AudioSampleBuffer, TakesItsDataFromAList) {
  List list(2, 1, 20);
  for (uint8_t i = 0; i < 20; ++i) list.memory[0][i] = i, list.memory[1][i] = static_cast<uint8_t>(100 + i);
  for (uint32_t flags : {0u, 1u}) {
    const Sample sample = test::make({.samples = 10, .format = audioFormat(kPlanarStereo16), .ready = false});
    ASSERT_EQ(
        PVSampleBufferSetDataBufferFromAudioBufferList(sample.get(), nullptr, nullptr, flags, list.get()), 0);
    EXPECT_TRUE(PVSampleBufferDataIsReady(sample.get()));
    List back(2, 1, 20);
    ASSERT_EQ(PVSampleBufferCopyPCMDataIntoAudioBufferList(sample.get(), 0, 10, back.get()), 0);
    EXPECT_EQ(back.memory, list.memory);
    EXPECT_EQ(PVSampleBufferSetDataBufferFromAudioBufferList(sample.get(), nullptr, nullptr, 0, list.get()),
              -12732);
  }
  const Sample eleven = test::make({.samples = 11, .format = audioFormat(kPlanarStereo16), .ready = false});
  const auto set = [&](const Sample& sample) {
    return PVSampleBufferSetDataBufferFromAudioBufferList(sample.get(), nullptr, nullptr, 0, list.get());
  };
  EXPECT_EQ(set(eleven), -12731);
  EXPECT_EQ(PVSampleBufferGetDataBuffer(eleven.get()), nullptr);
  EXPECT_EQ(set(test::make({.samples = 10, .format = audioFormat(kStereo16), .ready = false})), -12731);
  EXPECT_EQ(set(test::make({.samples = 10, .ready = false})), -12710);
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    const Sample sample = test::make({.samples = 10, .format = audioFormat(kPlanarStereo16), .ready = false});
    const PVStatus status =
        PVSampleBufferSetDataBufferFromAudioBufferList(sample.get(), allocator, allocator, 1, list.get());
    EXPECT_EQ(PVSampleBufferDataIsReady(sample.get()), status == 0);
    return status ? Outcome::kOutOfMemory : Outcome::kSucceeded;
  });
}

}  // namespace
