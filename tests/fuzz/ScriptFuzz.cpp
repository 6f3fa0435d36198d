// A shell script split into lines and words, and each word read as JSON the way `set`
// reads a value. A script error is the splitter's defined answer to a bad line.
#include "fuzz/FuzzTarget.h"

#include "shell/Json.h"
#include "shell/ScriptError.h"
#include "shell/ScriptLine.h"

namespace velmar::fuzz {

void Script(const std::uint8_t* data, std::size_t size) {
  const QString script = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
  for (const QString& line : script.split(u'\n')) {
    QStringList words;
    try {
      words = ScriptLine::Split(line);
    } catch (const ScriptError&) {
      continue;
    }
    for (const QString& word : words) {
      QString error;
      if (const std::optional<Json> value = ParseJson(word, &error)) JsonText(*value);
    }
  }
}

}  // namespace velmar::fuzz

VELMAR_FUZZ_ENTRY(Script)
