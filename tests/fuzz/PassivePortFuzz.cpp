// The reply to PASV, as the passive leg reads its port from it.
#include "fuzz/FuzzTarget.h"

#include "session/FTPSessionClass.h"

namespace velmar::fuzz {

void PassivePort(const std::uint8_t* data, std::size_t size) {
  EnsureApplication();
  static auto* session = new std::shared_ptr<FTPSessionClass>(std::make_shared<FTPSessionClass>());
  (*session)->CalculatePassivePort(
      QString::fromLatin1(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
}

}  // namespace velmar::fuzz

VELMAR_FUZZ_ENTRY(PassivePort)
