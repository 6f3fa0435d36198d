#pragma once
// The fuzz targets' entry functions. Each target file defines one of them; built with
// VELMAR_LIBFUZZER it also defines libFuzzer's entry point, which calls it. The corpus
// replay test of the ordinary suite calls the same functions with every kept input.
#include <QCoreApplication>

#include <cstddef>
#include <cstdint>

namespace velmar::fuzz {

void ListingLine(const std::uint8_t* data, std::size_t size);
void DirectoryListing(const std::uint8_t* data, std::size_t size);
void Reply(const std::uint8_t* data, std::size_t size);
void PassivePort(const std::uint8_t* data, std::size_t size);
void Script(const std::uint8_t* data, std::size_t size);

// The session's timers need an event dispatcher: one application for the whole process,
// unless the caller (the replay test) already has one.
inline void EnsureApplication() {
  if (QCoreApplication::instance()) return;
  static int argc = 1;
  static char name[] = "velmar-fuzz";
  static char* argv[] = {name, nullptr};
  new QCoreApplication(argc, argv);  // lives until the process ends
}

}  // namespace velmar::fuzz

#ifdef VELMAR_LIBFUZZER
#define VELMAR_FUZZ_ENTRY(function)                                                    \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    velmar::fuzz::function(data, size);                                                \
    return 0;                                                                          \
  }
#else
#define VELMAR_FUZZ_ENTRY(function)
#endif
