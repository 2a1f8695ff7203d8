// One line per atom: numbers first, so that they stay in line however deep the tree is. Of parameter sets one
// line and what else they say.
//
//        offset        size  header  atom
//            32        4213       8  moov
//            40         108       8    mvhd
//
//        offset  H.264 parameter set
//             4  SPS 0  High, level 4.1: 1920 x 1080, progressive, 25 frames per second
//                       colour BT.709, limited range
#include <fmt/format.h>

#include <algorithm>

#include "atom_type.hpp"
#include "codec_names.hpp"
#include "description_report.hpp"
#include "report.hpp"

namespace {

constexpr int kDeepestIndent = 32;
constexpr size_t kShownEdits = 16;

// "00:01:30" or "00:01:30.250", to the nearest millisecond.
std::string clockText(PVTime time) {
  PVTime shown = PVTimeConvertScale(time, 1000, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
  if (!PVTimeIsNumeric(shown))  // centuries in seconds still fit
    shown = PVTimeConvertScale(time, 1, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
  const int64_t seconds = shown.value / shown.timescale;
  const int64_t thousandths = shown.timescale == 1000 ? shown.value % 1000 : 0;
  std::string text = fmt::format("{:02}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
  if (thousandths != 0) text += fmt::format(".{:03}", thousandths);
  return text;
}

// "00:00:05 (64000/12800)"
std::string timeText(PVTime time) {
  if (!PVTimeIsNumeric(time)) return "unknown";
  return fmt::format("{} ({}/{})", clockText(time), time.value, time.timescale);
}

template <typename Number>
std::string numberText(std::optional<Number> number) {
  return number ? fmt::format("{}", *number) : "-";
}

class TextReport final : public Report {
 public:
  explicit TextReport(Output& output) : output_(output) {}

  void beginMovie(const std::string& fileName, int64_t fileSize) override {
    beginStream(fileName, fileSize);
    output_.print("\n{:>{}}  {:>{}}  header  atom\n", "offset", width_, "size", width_);
  }

  void beginAtom(const Atom& atom) override {
    output_.print("{:>{}}  {:>{}}  {:>6}  {:{}}", atom.offset, width_, atom.size, width_, atom.headerSize, "",
                  2 * std::min(depth_, kDeepestIndent));
    if (depth_ > kDeepestIndent) output_.print("({} deep) ", depth_);
    output_.write(typeText(atom.type));
    if (atom.uuid) output_.print(" {}", uuidText(*atom.uuid));
    output_.write(atom.truncated ? "  (incomplete)\n" : "\n");
    if (atom.container) ++depth_;
  }

  void endAtom() override { --depth_; }

  void endMovie(const MovieFacts& facts, const SampleDescriptions& descriptions,
                const MetadataItems& metadata, const std::vector<ParameterSet>& sets,
                SampleListing* samples) override {
    if (facts.hasMovie()) {
      output_.print("\nMovie: {}{}\n", timeText(facts.duration().time()),
                    facts.fragmentsNotCounted() ? ", its fragments not counted" : "");
    } else {
      output_.write("\nMovie: no movie header\n");
    }
    if (!facts.tracks().empty()) {
      output_.print("\n  id  kind  timescale  {:28}  duration in the movie\n", "duration of the media");
      for (size_t i = 0; i < facts.tracks().size(); ++i) {
        writeTrack(facts, facts.tracks()[i]);
        for (const SampleDescription& sample : descriptions.ofTrack(i))
          output_.print("{:12}{}\n", "", descriptionText(sample));
      }
    }
    for (const MetadataItem& item : metadata.items()) writeMetadata(facts, item);
    for (const ParameterSet& set : sets) parameterSet(set);
    for (size_t i = 0; samples && i < facts.tracks().size(); ++i)
      writeSamples(i, facts.tracks()[i], *samples);
  }

  void beginStream(const std::string& fileName, int64_t fileSize) override {
    width_ = std::max<int>(8, static_cast<int>(fmt::formatted_size("{}", fileSize)));
    output_.print("{}: {} bytes\n", printable(fileName), fileSize);
  }

  void parameterSet(const ParameterSet& set) override {
    if (!setsBegun_ || set.path != setsPath_) {
      output_.print("\n{:>{}}  {} parameter set{}{}\n", "offset", width_, codecName(set.codec),
                    set.path.empty() ? "" : " in ", set.path);
      setsBegun_ = true;
      setsPath_ = set.path;
    }
    constexpr const char* kKinds[] = {"VPS", "SPS", "PPS"};
    const std::string name = fmt::format("{} {}", kKinds[static_cast<int>(set.kind)], set.id);
    output_.print("{:>{}}  {}", set.offset, width_, name);
    if (set.kind == SetKind::SPS)
      writeSequence(set.codec, set.sequence, static_cast<int>(name.size()));
    else if (set.kind == SetKind::PPS)
      output_.print("  refers to SPS {}\n", set.spsId);
    else
      output_.write("\n");
  }

  void endStream() override {}
  void end(const std::vector<Damage>&) override {}

 private:
  // One line of what every set has, and one each of shape and colour, when they are told.
  void writeSequence(Codec codec, const SequenceFacts& facts, int nameWidth) {
    output_.print("  {}, {}: ", profileText(codec, facts), levelText(codec, facts));
    if (facts.width == 0) {
      output_.write("no picture");
    } else {
      output_.print("{}{} x {}", facts.fieldPictures ? "fields of " : "", facts.width, facts.height);
    }
    if (facts.interlaced) output_.write(*facts.interlaced ? ", interlaced" : ", progressive");
    if (facts.frameRate)
      output_.print(", {:.5g} {} per second", *facts.frameRate, facts.countsFields ? "fields" : "frames");
    output_.write("\n");
    const int indent = width_ + 2 + nameWidth + 2;
    writeLine(indent, shapeOf(facts));
    writeLine(indent, coloursOf(facts));
  }

  static std::vector<std::string> shapeOf(const SequenceFacts& facts) {
    std::vector<std::string> parts;
    if (const auto& ratio = facts.pixelAspectRatio)
      parts.push_back(fmt::format("pixel aspect ratio {}:{}", ratio->first, ratio->second));
    if (const auto& location = facts.chromaLocation) {
      const std::string top = chromaLocationText(location->first),
                        bottom = chromaLocationText(location->second);
      parts.push_back(
          top == bottom ? "chroma location " + top
                        : fmt::format("chroma location {} in top fields, {} in bottom fields", top, bottom));
    }
    return parts;
  }

  static std::vector<std::string> coloursOf(const SequenceFacts& facts) {
    std::vector<std::string> parts;
    if (facts.colour) parts.push_back("colour " + colourText(*facts.colour));
    if (facts.fullRange) parts.emplace_back(*facts.fullRange ? "full range" : "limited range");
    return parts;
  }

  void writeLine(int indent, const std::vector<std::string>& parts) {
    if (!parts.empty()) output_.print("{:{}}{}\n", "", indent, fmt::join(parts, ", "));
  }

  void writeTrack(const MovieFacts& facts, const TrackFacts& track) {
    output_.print("{:>4}  {:4}  {:>9}  {:28}  {}\n", numberText(track.id),
                  track.handler ? typeText(*track.handler) : "-", numberText(track.timescale),
                  timeText(facts.mediaDuration(track).time()), timeText(facts.editedDuration(track).time()));
    for (size_t i = 0; i < std::min(track.edits.size(), kShownEdits); ++i) {
      const Edit& edit = track.edits[i];
      const PVTime segment = Duration{edit.segmentDuration, facts.timescale()}.time();
      output_.print("{:23}edit: ", "");
      if (edit.mediaTime == -1) {
        output_.print("nothing for {}\n", timeText(segment));
        continue;
      }
      PVTime from = kPVTimeInvalid;
      if (edit.mediaTime >= 0) from = Duration{edit.mediaTime, track.timescale}.time();
      output_.print("{} of the media from {}", timeText(segment), timeText(from));
      if (edit.rateAsDouble() != 1) output_.print(" at rate {}", edit.rateAsDouble());
      output_.write("\n");
    }
    if (track.edits.size() > kShownEdits)
      output_.print("{:23}and {} more edits\n", "", track.edits.size() - kShownEdits);
  }

  // Under a heading for the movie, and for each track.
  void writeMetadata(const MovieFacts& facts, const MetadataItem& item) {
    if (!metadataBegun_ || item.track != metadataTrack_) {
      output_.write(item.track
                        ? fmt::format("\nMetadata of track {}\n", numberText(facts.tracks()[*item.track].id))
                        : "\nMetadata\n");
      metadataBegun_ = true;
      metadataTrack_ = item.track;
    }
    std::string name = item.identifier;
    if (!item.name.empty()) name += fmt::format(" ({})", item.name);
    output_.print("  {:24}  {}\n", printable(name), valueText(item));
  }

  static std::string valueText(const MetadataItem& item) {
    constexpr size_t kShownBytes = 24, kShownText = 200;
    const MetadataValue value = valueOf(item);
    if (const auto* text = std::get_if<std::string>(&value)) {
      if (text->size() <= kShownText) return fmt::format("\"{}\"", printable(*text));
      size_t end = kShownText;
      while ((static_cast<uint8_t>((*text)[end]) & 0xC0) == 0x80) --end;  // not within a character
      return fmt::format("\"{}\" and more, {} bytes in all", printable(text->substr(0, end)), text->size());
    }
    if (const auto* number = std::get_if<int64_t>(&value)) return fmt::format("{}", *number);
    if (const auto* number = std::get_if<uint64_t>(&value)) return fmt::format("{}", *number);
    if (const auto* numbers = std::get_if<std::vector<double>>(&value))
      return fmt::format("{}", fmt::join(*numbers, " "));
    const std::span<const uint8_t> shown(item.bytes.data(), std::min(item.bytes.size(), kShownBytes));
    return fmt::format("{} bytes: {:02x}{}", item.length, fmt::join(shown, ""),
                       item.length > shown.size() ? "..." : "");
  }

  // Times in units of the track's timescale, unless they are no whole number of them.
  void writeSamples(size_t number, const TrackFacts& track, SampleListing& samples) {
    const auto units = [&track](PVTime time) {
      return time.timescale == static_cast<int32_t>(track.timescale.value_or(0))
                 ? fmt::format("{}", time.value)
                 : fmt::format("{}/{}", time.value, time.timescale);
    };
    output_.print("\nSamples of track {} ({}) as they are shown, times in units of 1/{} second\n",
                  numberText(track.id), track.handler ? typeText(*track.handler) : "-",
                  numberText(track.timescale));
    output_.print("{:>{}}  {:>8}  {:>7}  {:>12}  {:>12}  {:>8}\n", "offset", width_, "size", "sample",
                  "presentation", "decode", "duration");
    const PVTime longest = samples.list(number, [&](const ListedSample& sample) {
      const std::string offset = sample.offset < 0 ? "-" : fmt::format("{}", sample.offset);
      output_.print("{:>{}}  {:>8}  {:>7}  {:>12}  {:>12}  {:>8}{}{}{}\n", offset, width_, sample.size,
                    sample.count > 1 ? fmt::format("{}+{}", sample.index, sample.count)
                                     : fmt::format("{}", sample.index),
                    units(sample.presentation), units(sample.decode), units(sample.duration),
                    sample.sync ? "  sync" : "", sample.hidden ? "  hidden" : "",
                    sample.missing ? "  missing" : "");
    });
    output_.print("At most {} of them wait in the queue.\n", timeText(longest));
  }

  Output& output_;
  int width_ = 0;
  int depth_ = 0;
  bool metadataBegun_ = false;
  std::optional<size_t> metadataTrack_;
  bool setsBegun_ = false;
  std::string setsPath_;  // of the atom whose sets are being written
};

}  // namespace

std::unique_ptr<Report> makeTextReport(Output& output) { return std::make_unique<TextReport>(output); }

std::string uuidText(const std::array<uint8_t, 16>& uuid) {
  std::string text;
  for (size_t i = 0; i < uuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += fmt::format("{:02x}", uuid[i]);
  }
  return text;
}

std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      shown += fmt::format("\\x{:02x}", byte);
    } else {
      shown += c;
    }
  }
  return shown;
}
