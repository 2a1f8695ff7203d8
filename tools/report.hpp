// How an inspected file is written down: as text for people, as JSON for programs. Both write the atoms of a
// movie, and the parameter sets of an elementary stream, as they come.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "atom_walk.hpp"
#include "movie_facts.hpp"
#include "movie_metadata/metadata_items.hpp"
#include "output.hpp"
#include "parameter_sets.hpp"
#include "sample_descriptions.hpp"
#include "sample_listing.hpp"

class Report {
 public:
  virtual ~Report() = default;

  virtual void beginMovie(const std::string& fileName, int64_t fileSize) = 0;
  virtual void beginAtom(const Atom& atom) = 0;
  virtual void endAtom() = 0;  // of a container
  // samples is null when they are not asked for.
  virtual void endMovie(const MovieFacts& facts, const SampleDescriptions& descriptions,
                        const MetadataItems& metadata, const std::vector<ParameterSet>& sets,
                        SampleListing* samples) = 0;

  virtual void beginStream(const std::string& fileName, int64_t fileSize) = 0;
  virtual void parameterSet(const ParameterSet& set) = 0;
  virtual void endStream() = 0;

  virtual void end(const std::vector<Damage>& damages) = 0;
};

std::unique_ptr<Report> makeTextReport(Output& output);
std::unique_ptr<Report> makeJsonReport(Output& output);

// "be7acfcb-97a9-42e8-9c71-999491e3afac"
std::string uuidText(const std::array<uint8_t, 16>& uuid);
// For the eye: control characters as \xHH, so that a name cannot steer the terminal.
std::string printable(std::string_view text);
