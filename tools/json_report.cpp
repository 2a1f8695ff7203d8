// One line per atom, track and error, without indentation: the document of a million atoms stays small, and
// is never in memory as a whole. The keys are described in the command's help.
#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "atom_type.hpp"
#include "description_report.hpp"
#include "property_values.hpp"
#include "report.hpp"

namespace {

// A string literal; bytes that are not UTF-8 become U+FFFD.
std::string literal(std::string_view text) {
  using nlohmann::json;
  return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

template <typename Number>
std::string numberOrNull(const std::optional<Number>& number) {
  return number ? fmt::format("{}", *number) : "null";
}

std::string timeOrNull(PVTime time) {
  if (!PVTimeIsNumeric(time)) return "null";
  return fmt::format(R"({{"value":{},"timescale":{}}})", time.value, time.timescale);
}

std::string secondsOrNull(PVTime time) {
  const double seconds = PVTimeGetSeconds(time);
  return std::isfinite(seconds) ? fmt::format("{}", seconds) : "null";
}

class JsonReport final : public Report {
 public:
  explicit JsonReport(Output& output) : output_(output) {}

  void beginMovie(const std::string& fileName, int64_t fileSize) override {
    begin(fileName, fileSize);
    output_.write("\"atoms\":[");
  }

  void beginAtom(const Atom& atom) override {
    separate();
    output_.print(R"({{"type":{},"offset":{},"size":{},"headerSize":{})", literal(typeText(atom.type)),
                  atom.offset, atom.size, atom.headerSize);
    if (atom.uuid) output_.print(R"(,"uuid":"{}")", uuidText(*atom.uuid));
    if (atom.truncated) output_.write(R"(,"truncated":true)");
    if (atom.container) {
      output_.write(R"(,"children":[)");
      first_ = true;
    } else {
      output_.write("}");
    }
  }

  void endAtom() override {
    output_.write("]}");
    first_ = false;
  }

  void endMovie(const MovieFacts& facts, const SampleDescriptions& descriptions,
                const MetadataItems& metadata, const std::vector<ParameterSet>& sets,
                SampleListing* samples) override {
    const PVTime duration = facts.duration().time();
    if (facts.hasMovie()) {
      output_.print("],\n\"movie\":{{\"timescale\":{},\"duration\":{},\"seconds\":{}}},\n",
                    numberOrNull(facts.timescale()), timeOrNull(duration), secondsOrNull(duration));
    } else {
      output_.write("],\n\"movie\":null,\n");
    }
    output_.write("\"tracks\":[");
    first_ = true;
    for (size_t i = 0; i < facts.tracks().size(); ++i) writeTrack(facts, i, descriptions.ofTrack(i), samples);
    output_.write("],\n\"metadata\":[");
    first_ = true;
    for (const MetadataItem& item : metadata.items()) writeMetadata(facts, item);
    output_.write("],\n\"parameterSets\":[");
    first_ = true;
    for (const ParameterSet& set : sets) parameterSet(set);
    endStream();
  }

  void beginStream(const std::string& fileName, int64_t fileSize) override {
    begin(fileName, fileSize);
    output_.write("\"parameterSets\":[");
  }

  void parameterSet(const ParameterSet& set) override {
    constexpr const char* kKinds[] = {"vps", "sps", "pps"};
    separate();
    output_.print(R"({{"kind":"{}","codec":"{}","offset":{},"id":{})", kKinds[static_cast<int>(set.kind)],
                  set.codec == Codec::H264 ? "h264" : "hevc", set.offset, set.id);
    if (set.kind == SetKind::SPS) writeSequence(set.sequence);
    if (set.kind == SetKind::PPS) output_.print(R"(,"spsId":{})", set.spsId);
    if (!set.path.empty()) output_.print(R"(,"path":{})", literal(set.path));
    output_.write("}");
  }

  void endStream() override { output_.write("],\n"); }

  void end(const std::vector<Damage>& damages) override {
    output_.write("\"errors\":[");
    first_ = true;
    for (const Damage& damage : damages) {
      separate();
      output_.print(R"({{"path":{},"offset":{},"status":{},"message":{}}})", literal(damage.path),
                    damage.offset, damage.status, literal(damage.message));
    }
    output_.write("]}\n");
  }

 private:
  void separate() {
    output_.write(first_ ? "\n" : ",\n");
    first_ = false;
  }

  void begin(const std::string& fileName, int64_t fileSize) {
    output_.print("{{\"file\":{},\n\"size\":{},\n", literal(fileName), fileSize);
  }

  void writeSequence(const SequenceFacts& facts) {
    output_.print(R"(,"profile":{},"level":{})", facts.profile, facts.level);
    if (facts.width != 0) output_.print(R"(,"width":{},"height":{})", facts.width, facts.height);
    if (facts.interlaced) output_.print(R"(,"interlaced":{})", *facts.interlaced);
    if (facts.frameRate) output_.print(R"(,"frameRate":{})", *facts.frameRate);
    if (const auto& ratio = facts.pixelAspectRatio)
      output_.print(R"(,"pixelAspectRatio":{{"horizontal":{},"vertical":{}}})", ratio->first, ratio->second);
    if (const auto& colour = facts.colour)
      output_.print(R"(,"colour":{{"primaries":{},"transfer":{},"matrix":{}}})", colour->primaries,
                    colour->transfer, colour->matrix);
    if (facts.fullRange) output_.print(R"(,"fullRange":{})", *facts.fullRange);
    if (const auto& location = facts.chromaLocation)
      output_.print(R"(,"chromaLocation":{{"topField":{},"bottomField":{}}})", location->first,
                    location->second);
  }

  void writeTrack(const MovieFacts& facts, size_t number, std::span<const SampleDescription> descriptions,
                  SampleListing* samples) {
    const TrackFacts& track = facts.tracks()[number];
    const PVTime duration = facts.mediaDuration(track).time();
    separate();
    output_.print(
        R"({{"id":{},"handler":{},"timescale":{},"duration":{},"seconds":{},"trackDuration":{},"edits":[)",
        numberOrNull(track.id), track.handler ? literal(typeText(*track.handler)) : "null",
        numberOrNull(track.timescale), timeOrNull(duration), secondsOrNull(duration),
        timeOrNull(facts.editedDuration(track).time()));
    const char* separator = "";
    for (const Edit& edit : track.edits) {
      output_.print(R"({}{{"segmentDuration":{},"mediaTime":{},"rate":{}}})", separator, edit.segmentDuration,
                    edit.mediaTime, edit.rateAsDouble());
      separator = ",";
    }
    output_.write(R"(],"descriptions":[)");
    separator = "";
    for (const SampleDescription& sample : descriptions) {
      output_.write(separator);
      output_.write(descriptionJson(sample.description.get()));
      separator = ",";
    }
    output_.write("]");
    if (samples) writeSamples(number, *samples);
    output_.write("}");
    first_ = false;
  }

  void writeMetadata(const MovieFacts& facts, const MetadataItem& item) {
    separate();
    output_.write("{");
    if (item.track) output_.print(R"("track":{},)", numberOrNull(facts.tracks()[*item.track].id));
    output_.print(R"("identifier":{},)", literal(item.identifier));
    if (!item.name.empty()) output_.print(R"("name":{},)", literal(item.name));
    output_.print(R"("dataType":{},"value":{})", literal(stringIn(item.dataType.get()).value_or("")),
                  valueJson(item));
    if (item.length > item.bytes.size()) output_.print(R"(,"length":{})", item.length);
    output_.write("}");
  }

  // Text is a string, a number a number, and several are a list; bytes are a string of hexadecimal digits.
  static std::string valueJson(const MetadataItem& item) {
    const MetadataValue value = valueOf(item);
    if (const auto* text = std::get_if<std::string>(&value)) return literal(*text);
    if (const auto* number = std::get_if<int64_t>(&value)) return fmt::format("{}", *number);
    if (const auto* number = std::get_if<uint64_t>(&value)) return fmt::format("{}", *number);
    if (const auto* numbers = std::get_if<std::vector<double>>(&value)) {
      const auto json = [](double one) { return nlohmann::json(one).dump(); };
      if (numbers->size() == 1) return json(numbers->front());
      std::vector<std::string> all;
      for (double one : *numbers) all.push_back(json(one));
      return fmt::format("[{}]", fmt::join(all, ","));
    }
    return fmt::format("\"{:02x}\"", fmt::join(item.bytes, ""));
  }

  void writeSamples(size_t track, SampleListing& samples) {
    output_.write(R"(,"samples":[)");
    first_ = true;
    const PVTime longest = samples.list(track, [this](const ListedSample& sample) {
      separate();
      output_.print(
          R"({{"index":{},"decode":{},"presentation":{},"duration":{},"size":{},"offset":{},"sync":{})",
          sample.index, timeOrNull(sample.decode), timeOrNull(sample.presentation),
          timeOrNull(sample.duration), sample.size,
          numberOrNull(sample.offset < 0 ? std::nullopt : std::optional(sample.offset)), sample.sync);
      if (sample.count > 1) output_.print(R"(,"count":{})", sample.count);
      if (sample.hidden) output_.write(R"(,"hidden":true)");
      if (sample.missing) output_.write(R"(,"missing":true)");
      if (sample.dependsOnOthers) output_.print(R"(,"dependsOnOthers":{})", *sample.dependsOnOthers);
      if (sample.isDependedOnByOthers)
        output_.print(R"(,"isDependedOnByOthers":{})", *sample.isDependedOnByOthers);
      if (sample.hasRedundantCoding) output_.print(R"(,"hasRedundantCoding":{})", *sample.hasRedundantCoding);
      output_.write("}");
    });
    output_.print(R"(],"queueDuration":{})", timeOrNull(longest));
  }

  Output& output_;
  bool first_ = true;  // of the list being written
};

}  // namespace

std::unique_ptr<Report> makeJsonReport(Output& output) { return std::make_unique<JsonReport>(output); }
