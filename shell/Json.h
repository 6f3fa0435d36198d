#pragma once
// JSON values as the shell prints them in `value` and `result` lines, and the reading of
// words that carry JSON (`set Files ["a","b"]`). Values are nlohmann's ordered_json, whose
// objects keep their members in the order they were inserted, so a dump lists fields in
// declared order. Strings are held as UTF-8.
#include <QString>
#include <nlohmann/json.hpp>
#include <optional>

namespace velmar {

using Json = nlohmann::ordered_json;

// A JSON string of the text.
Json JsonString(const QString& text);
// The text of a JSON string value.
QString JsonToQString(const Json& value);

// The shell's compact form on one line: members in order; whole numbers (also whole doubles
// up to 2^53) without a fraction, other doubles in the shortest form that reads back the
// same, NaN and infinities as null; in strings every control character (C0, DEL and C1) is
// escaped as \u00XX and the rest is kept as it is, so the text never holds a TAB, CR or LF.
QString JsonText(const Json& value);

// Parses a complete JSON text (surrounding white space allowed). On failure returns nothing
// and, when `error` is given, says what is wrong and at which column.
std::optional<Json> ParseJson(const QString& text, QString* error = nullptr);

// Escapes a report text for an output line: \ -> \\, CR -> \r, LF -> \n, TAB -> \t, any
// other control character (C0, DEL, C1) -> \xHH. The result holds no line break or TAB.
QString EscapeText(const QString& text);

}  // namespace velmar
