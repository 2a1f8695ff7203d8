#include "movie_file.hpp"

#include "movie/media_map.hpp"

MovieFile::MovieFile(KivByteStreamRef stream, int64_t size, int64_t mediaSize)
    : stream_(stream), index_(mediaSize) {
  AtomWalk(stream, size, *this).run();
  descriptions_.read(stream, facts_.tracks(), false, damages_);
  index_.finish(facts_, damages_);
  for (size_t i = 0; i < index_.tracks().size(); ++i)
    index_.tracks()[i].packings = packingsOf(descriptions_.ofTrack(i));
}

MovieFile::MovieFile(const InputFile& file) : MovieFile(file.stream(), file.size(), file.size()) {
  media_ = mapMedia(file.descriptor(), file.size());
  if (!media_ && file.size() > 0)
    damages_.push_back({"", 0, kKivByteStreamError_ReadFailed, "the file cannot be mapped"});
}

bool MovieFile::beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) {
  if (walk.types().size() == 1) atoms_.push_back(atom);
  if (auto fault = facts_.read(walk.types(), stream))
    damages_.push_back({walk.path(), atom.offset, fault->status, std::move(fault->message)});
  descriptions_.noteAtom(atom, stream, walk, facts_.tracks().size());
  index_.noteAtom(atom, stream, walk, facts_, damages_);
  return true;
}

bool MovieFile::isTimed(size_t track) const {
  const auto timescale = facts_.tracks()[track].timescale.value_or(0);
  return timescale > 0 && timescale <= INT32_MAX && track < index_.tracks().size();
}

TrackSamples MovieFile::samplesOf(size_t track) const {
  return TrackSamples(facts_.tracks()[track], facts_.timescale(), index_.tracks()[track],
                      descriptions_.ofTrack(track), media_.get());
}
