// Platform services that are loaded by name when they are first needed, and never given up.
//
//   const pv::ServiceLibrary library("Reels", "PEVRIN_REELS_PATH", "libreels.so.0");
//   if (library.isOpen() && library.find("ReelCount", &reelCount)) frames = reelCount(reel);
#ifndef PEVRIN_RUNTIME_SERVICE_HPP
#define PEVRIN_RUNTIME_SERVICE_HPP

namespace pv {

class ServiceLibrary {
 public:
  // The file that the environment variable names, else the one of that name where the loader looks. An empty
  // variable means that there is none. Standard error is told when the file cannot be loaded, and of each
  // function it lacks.
  ServiceLibrary(const char* service, const char* variable, const char* fileName);

  bool isOpen() const { return handle_; }

  // Null, and false, when the library lacks it.
  template <class Signature>
  bool find(const char* name, Signature** function) const {
    *function = reinterpret_cast<Signature*>(findSymbol(name));
    return *function;
  }

 private:
  void* findSymbol(const char* name) const;

  const char* service_;
  void* handle_;
};

}  // namespace pv

#endif
