// One listing line through the line parser. Its one defined failure, the read past the last
// token, may leave it; anything else is a finding.
#include "fuzz/FuzzTarget.h"

#include "listing/FTPParsedDirListLineClass.h"
#include "platform/Exceptions.h"
#include "session/FTPSessionClass.h"

namespace velmar::fuzz {

void ListingLine(const std::uint8_t* data, std::size_t size) {
  EnsureApplication();
  // The parser reads no session state: one session serves every input.
  static auto* session = new std::shared_ptr<FTPSessionClass>(std::make_shared<FTPSessionClass>());
  const QString line = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
  try {
    (*session)->ParseDirListLine(line);
  } catch (const OutOfBoundsException&) {
  }
}

}  // namespace velmar::fuzz

VELMAR_FUZZ_ENTRY(ListingLine)
