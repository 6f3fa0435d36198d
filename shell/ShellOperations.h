#pragma once
// The shell's view of a session: the one table of operations (METHOD [ARG]...) and the
// table of fields (set / print), each row built from the member it reaches.
//
// Adding an operation is one row in Operations() in ShellOperations.cpp:
//     Method("ChangeDir", &FTPSessionClass::ChangeDir),
// Arguments are converted from words by the parameter types of the member (QString as
// is, qint32 decimal, bool true/false, double, TextEncoding by name, QStringList from a
// JSON array, a FolderItem from an absolute path) and a result becomes JSON by its type.
// Overloads are told apart by their argument count; name each one by its signature:
//     Method<void(qint32)>("ParseCommandBuffer", &FTPSessionClass::ParseCommandBuffer),
// A new parameter type needs a WordTo<T> definition, a new result type a JsonOf<T>
// one; a class whose objects are results or fields (std::shared_ptr<T>, or a list of
// them) needs only a Fields<T> table of its own fields and prints as an object.
//
// Adding a field is one row in SessionFields():
//     Field<S>("Timeout", &S::Timeout),
// settable when WordTo<T> exists for its type, printable when JsonOf<T> does. Object
// fields (ObjectField) print as objects, are reached by dotted paths and can be set to null.
#include "shell/Json.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace velmar {

class FTPSessionClass;

class ShellOperations {
public:
  // True when `name` is an operation of the table.
  static bool HasOperation(const QString& name);
  // Runs the operation `name` with its argument words on the session and returns its
  // result, or nothing for an operation without one. Throws ScriptError for an unknown
  // name, a wrong argument count or a bad argument; exceptions of the session itself pass.
  static std::optional<Json> Call(FTPSessionClass& session, const QString& name, const QStringList& words);

  // The value of a field by its name or dotted path ("CommandPort", "DataSocket.FileName");
  // null when an object on the path is nil. Throws ScriptError for an unknown field.
  static Json Get(FTPSessionClass& session, const QString& path);
  // Assigns a field from a word. Throws ScriptError for an unknown or read-only field, a
  // bad value, or a nil object on the path.
  static void Set(FTPSessionClass& session, const QString& path, const QString& word);

  // Names for the usage text, in table order (an overloaded name once).
  static QStringList OperationNames();
  static QStringList FieldNames();
};

}  // namespace velmar
