// The pevrin command line.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <tuple>

#include "inspect.hpp"
#include "play/play.hpp"
#include "remux/remux.hpp"
#include "report.hpp"
#include "time_argument.hpp"

namespace {

constexpr const char* kInspectFooter =
    R"(FILE is one of these. Its content decides which: a movie begins with an atom, an
elementary stream with a start code. Only when the content fits neither does the
name count (.h264 .264 .avc .jsv .jvt .26l, .hevc .h265 .265 .hvc .bit).
  a movie                MP4, QuickTime and their kin
  an elementary stream   H.264 or HEVC in byte stream format (Annex B)
  a parameter set        one NAL unit of H.264 or HEVC without a start code
Whether a stream is H.264 or HEVC is told by its name if it has parameter sets of
that codec, and otherwise by its first parameter set.

Of a movie the text shows one line per atom (offset, size and header size in
bytes, type), then the duration of the movie, and for each track its id, kind,
timescale, duration, edits and sample descriptions. Times are exact: 00:00:05 (64000/12800) is 64000
units of 1/12800 second. Then come the metadata by their identifiers, a key space
and a key: "Name" is text, 7 a number, everything else bytes. Then, and of an
elementary stream alone, it shows the parameter sets: a movie's from each 'avcC'
and 'hvcC' atom, a stream's in their order, where a set that is repeated without a
change is listed once.

With --json the output is one object; an elementary stream or a parameter set
has no atoms, movie, tracks and metadata:
  file, size   the name as given and the length in bytes
  atoms        list of {type, offset, size, headerSize}; with uuid when the
               type is 'uuid', children when the atom holds atoms, and
               truncated: true when there is less of it than its size says
  movie        {timescale, duration: {value, timescale}, seconds} from 'mvhd';
               when the duration there is 0, as in fragmented movies, that of
               'mehd' if there is one; null without a movie header
  tracks       list of {id, handler, timescale, duration, seconds,
               trackDuration, edits, descriptions}: duration is that of the
               media ('mdhd'), trackDuration that after edits ('tkhd'); edits
               is a list of {segmentDuration, mediaTime, rate}, the first in
               units of the movie's timescale, the second in units of the
               track's, or -1 for an empty edit; descriptions is below
  metadata     list of {identifier, dataType, value}, with track when it is that
               of a track, name when the key ("itsk/----", "id3/TXXX") does not
               tell items apart, and length when the value is longer than the
               64 KiB of it that are shown. A value is text, a number or a list
               of numbers by its data type, else bytes in hexadecimal digits.
               They are looked for in user data ('udta'), items ('ilst') with
               four-byte keys or a list of 'keys', and ID3 tags ('ID32')
  parameterSets
               list of {kind, codec, offset, id, ...}: kind is "sps", "pps" or
               "vps", codec "h264" or "hevc", offset that of the NAL unit in the
               file; in a movie also path, the atom that holds it. A "pps" has
               spsId. An "sps" has profile, level, width, height, interlaced,
               frameRate, pixelAspectRatio: {horizontal, vertical}, colour:
               {primaries, transfer, matrix}, fullRange, and chromaLocation:
               {topField, bottomField}. Width and height are those inside the
               cropping, the rate is per second and counts pictures (fields
               where pictures are fields), interlaced and fullRange are true or
               false; everything else is a number as coded. What a set does not
               say has no key
  errors       list of {path, offset, status, message}
The descriptions of a track are made of its sample entries ('stsd'), by the track's
handler and the file's brand. Each has mediaType and mediaSubType, and what is
known of:
  dimensions, presentationDimensions
               {width, height} of a video frame, as it is coded and as it is to
               be shown
  cleanAperture, pixelAspectRatio
               {x, y, width, height} from the top left; {horizontal, vertical}
  colour       {primaries, transfer, matrix, gamma, fullRange}: the first three
               are names; code points without one are in the atoms alone
  audio        {sampleRate, formatID, formatFlags, bytesPerPacket,
               framesPerPacket, bytesPerFrame, channels, bitsPerChannel,
               channelLayoutTag}
  timecode     {frameDuration: {value, timescale}, frameQuanta, flags,
               sourceName}: flag 1 is drop frame
  text         {displayFlags, justification: {horizontal, vertical},
               defaultTextBox: {x, y, width, height}, defaultStyle: {fontID,
               bold, italic, underline, fontSize, colour, fontName}}; the
               components of colour, red, green, blue and alpha, are 0 to 1
  extensions   everything else, by name; data as hexadecimal digits
The first 1000 entries of a movie, of up to 16 MiB together, are looked into.

With --verify every sample entry is also made into bytes again from its description.
A byte that differs from the file's is an error at the offset of the first one.
Entries of tracks of other kinds than video, sound, text, subtitles, closed captions
and timecode are shown by type alone and not verified.

With --samples every sample of a movie is listed, for each track in the order in which
they are shown. In JSON a track then has also
  samples      list of {index, decode, presentation, duration, size, offset, sync}:
               index counts from 0 in decoding order; the times are {value,
               timescale}, exact and on the movie's timeline; offset is that in the
               file; sync is true where decoding can begin. What else there is has a
               key: count, when the line is a whole chunk of that many samples of
               uncompressed sound; hidden: true when no edit shows the sample;
               missing: true when the file does not have all its bytes; and as far as
               the file tells, dependsOnOthers, isDependedOnByOthers and
               hasRedundantCoding, each true or false
  queueDuration
               how much at most waits in a queue that takes the samples in decoding
               order and gives each out as soon as none that is shown earlier can come
An edit list moves a track's samples: a sample stands where the first edit that shows it
puts it, at the edit's rate, and its decoding time moves with it. Samples before the
first edit have earlier times, which may be negative; those that are shown by no edit
follow the edit before them. No samples are read, only the tables.

What a movie leaves unknown is null. Bytes of a type that are not printable ASCII
are written \xHH, and bytes of a file name that are not UTF-8 as U+FFFD.

Damage is also reported on standard error. Everything that can be read is shown.
Exit status: 0 the file is sound, 1 it is damaged (an empty file is), 2 it could
not be read or the command was wrong.)";

constexpr const char* kPlayFooter =
    R"(Delivers every sample of a movie when its time has come, on the host's clock, and tells
how late it was. Nothing is decoded: what is shown is whether the movie's samples are there in time.

On a terminal there is a line for each track, and keys: space pauses, + and - double and
halve the rate, the left and right arrows go 5 seconds back and on, r turns round, q
ends it. Elsewhere there is a line for each track every second.

At the end it tells, for each track, the samples delivered, dropped (their bytes are not
in the file) and out of order, and how late they were. With --json this is one object:
  file, rate, duration   the name as given, the rate at the end, the movie's end
                         {value, timescale}
  tracks                 list of {id, handler, delivered, dropped, outOfOrder,
                         lateness: {p50, p99, max}}, in seconds of the host's clock

Exit status: 0 the movie is sound, 1 it is damaged, 2 it could not be played.)";

constexpr const char* kRemuxFooter =
    R"(Writes the tracks of a movie into another file, without encoding them anew: the same
samples with the same times, in the layout and with the sample descriptions of the
file that OUT's name tells: .mov .qt (QuickTime), .mp4 .m4v .m4a .m4b (MP4), .3gp
.3g2 (3GPP). IN may have its samples in tables or in fragments. Metadata and atoms
that are not known go along; free space and indexes do not.

A stream of H.264 or HEVC in byte stream format (Annex B) becomes a movie of one track.
Its pictures last equally long, by --rate or else by the rate that the stream tells, and
are shown in the order of their picture order counts. Parameter sets go into the sample
description; when they change on the way, the samples keep theirs, too.

OUT is written in its folder and put in its place when it is complete: until then, and
after a failure, what was there before stays. IN and OUT may be the same file.

Exit status: 0 OUT is there, 1 IN is damaged, 2 it could not be done.)";

ExitStatus refuse(const std::string& command, const std::string& reason) {
  std::fputs(fmt::format("pevrin: {}\nSee: pevrin {}--help\n", printable(reason), command).c_str(), stderr);
  return kFailed;
}

// What the command line asks for, subcommand by subcommand.
class CommandLine {
 public:
  CommandLine() {
    app_.set_version_flag("--version", "pevrin " PEVRIN_VERSION, "Print the version and exit");
    app_.set_help_flag("-h,--help", "Print this help and exit");
    app_.require_subcommand(1);
    app_.footer("To learn more: pevrin inspect --help");
    addInspect();
    addRemux();
    addPlay();
  }

  ExitStatus run(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        app_.exit(error);  // help or version
        return std::fflush(stdout) == 0 ? kSound : kFailed;
      }
      const auto chosen = app_.get_subcommands();
      const auto rest = app_.remaining();
      const std::string reason = !chosen.empty() || rest.empty()
                                     ? error.what()
                                     : fmt::format("{} is not a subcommand", rest.front());
      return refuse(chosen.empty() ? "" : chosen.front()->get_name() + " ", reason);
    }
    if (app_.got_subcommand(inspect_)) return inspect(file_, inspectOptions_);
    return app_.got_subcommand(remux_) ? runRemux() : runPlay();
  }

 private:
  void addInspect() {
    inspect_ = app_.add_subcommand(
        "inspect",
        "Show the atoms, times and tracks of a movie, and the parameter sets of a movie or a video stream");
    addFile(inspect_, "FILE", file_, "The movie, stream or parameter set, also compressed with gzip");
    inspect_->add_flag("--json", inspectOptions_.json, "Write one JSON object instead of text");
    inspect_->add_flag("--verify", inspectOptions_.verify,
                       "Write every sample entry again and report bytes that differ");
    inspect_->add_flag("--samples", inspectOptions_.samples,
                       "List the samples of a movie in the order in which they are shown");
    inspect_->footer(kInspectFooter);
  }

  void addRemux() {
    remux_ =
        app_.add_subcommand("remux", "Write the samples of a movie, or of a video stream, into a movie file");
    addFile(remux_, "IN", file_, "The movie, or a stream of H.264 or HEVC");
    addFile(remux_, "OUT", output_, "The file to write");
    auto* fragments = remux_->add_option(
        "--fragment", fragment_,
        "Write fragments of at least this length, as 2s or 500ms, that begin at sync samples");
    fragments->type_name("LENGTH");
    remux_->add_flag("--faststart", remuxOptions_.fastStart, "Write the header before the media")
        ->excludes(fragments);
    remux_->add_option("--rate", frameRate_, "Frames in a second of a stream, as 25 or 30000/1001")
        ->type_name("RATE");
    remux_->footer(kRemuxFooter);
  }

  void addPlay() {
    play_ =
        app_.add_subcommand("play", "Deliver the samples of a movie in time, and tell how late they were");
    addFile(play_, "FILE", file_, "The movie");
    play_->add_option("--rate", playOptions_.rate, "How fast; below 0 backwards")->type_name("RATE");
    play_->add_option("--start", start_, "Where on the movie's timeline it begins, as 10s")
        ->type_name("TIME");
    play_->add_option("--duration", duration_, "How much of the timeline is played, as 5s")
        ->type_name("LENGTH");
    play_->add_flag("--json", playOptions_.json, "Write one JSON object at the end and nothing before");
    play_->footer(kPlayFooter);
  }

  static void addFile(CLI::App* command, const char* name, std::string& file, const char* what) {
    command->add_option(name, file, what)->required()->type_name("");
  }

  ExitStatus runRemux() {
    if (!fragment_.empty()) {
      remuxOptions_.fragment = parseTime(fragment_);
      if (!remuxOptions_.fragment || remuxOptions_.fragment->value == 0)
        return refuse("remux ", fmt::format("--fragment: {} is not a length", fragment_));
    }
    if (!frameRate_.empty()) {
      remuxOptions_.rate = parseFrameRate(frameRate_);
      if (!remuxOptions_.rate) return refuse("remux ", fmt::format("--rate: {} is no rate", frameRate_));
    }
    return remux(file_, output_, remuxOptions_);
  }

  ExitStatus runPlay() {
    if (!(std::abs(playOptions_.rate) > 0) || std::isinf(playOptions_.rate))
      return refuse("play ", "--rate: it takes a number that is not 0");
    for (const auto& [text, option, name] : {std::tuple(&start_, &playOptions_.start, "--start"),
                                             std::tuple(&duration_, &playOptions_.duration, "--duration")}) {
      if (text->empty()) continue;
      *option = parseTime(*text);
      if (!*option) return refuse("play ", fmt::format("{}: {} is no time", name, *text));
    }
    return play(file_, playOptions_);
  }

  CLI::App app_{"Looks into movie files (MP4, QuickTime and their kin) and H.264 and HEVC streams.",
                "pevrin"};
  CLI::App *inspect_ = nullptr, *remux_ = nullptr, *play_ = nullptr;
  std::string file_, output_, fragment_, frameRate_, start_, duration_;
  InspectOptions inspectOptions_;
  RemuxOptions remuxOptions_;
  PlayOptions playOptions_;
};

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a write to a closed pipe answers EPIPE instead
  try {
    return CommandLine().run(argc, argv);
  } catch (const std::exception& error) {
    std::fputs(fmt::format("pevrin: {}\n", error.what()).c_str(), stderr);
    return kFailed;
  }
}
