#include "shell/ShellOperations.h"

#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "listing/FTPParsedDirListLineClass.h"
#include "platform/FolderItem.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "session/FTPStatusClass.h"
#include "shell/ScriptError.h"

#include <cmath>
#include <functional>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

namespace velmar {

namespace {

// ---------------------------------------------------------------------------------------
// Words to values: a type without its own WordTo<T> cannot be an argument or be set.

template <class T>
struct WordTo {};

template <class T>
concept FromWord = requires(const QString& word) { WordTo<T>::Convert(word); };

template <>
struct WordTo<QString> {
  static QString Convert(const QString& word) { return word; }
};

template <>
struct WordTo<qint32> {
  static qint32 Convert(const QString& word) {
    qsizetype i = (word.startsWith(u'-') || word.startsWith(u'+')) ? 1 : 0;
    bool digits = i < word.size();
    for (; i < word.size(); ++i)
      if (word[i] < u'0' || word[i] > u'9') digits = false;
    bool ok = false;
    const qint64 value = digits ? word.toLongLong(&ok, 10) : 0;
    if (!ok || value < std::numeric_limits<qint32>::min() || value > std::numeric_limits<qint32>::max())
      throw ScriptError(QStringLiteral("'%1' is not a decimal integer of 32 bits").arg(word));
    return static_cast<qint32>(value);
  }
};

template <>
struct WordTo<bool> {
  static bool Convert(const QString& word) {
    if (word == u"true") return true;
    if (word == u"false") return false;
    throw ScriptError(QStringLiteral("'%1' is not a boolean (true or false)").arg(word));
  }
};

template <>
struct WordTo<double> {
  static double Convert(const QString& word) {
    bool ok = false;
    const double value = word.trimmed() == word ? word.toDouble(&ok) : 0;
    if (!ok || !std::isfinite(value)) throw ScriptError(QStringLiteral("'%1' is not a number").arg(word));
    return value;
  }
};

template <>
struct WordTo<TextEncoding> {
  static TextEncoding Convert(const QString& word) {
    if (auto encoding = TextEncoding::FromName(word)) return *encoding;
    throw ScriptError(QStringLiteral("unknown text encoding '%1' (ISO-8859-1 or UTF-8)").arg(word));
  }
};

// A JSON array of strings, e.g. ["a","b"].
template <>
struct WordTo<QStringList> {
  static QStringList Convert(const QString& word) {
    QString error;
    const auto json = ParseJson(word, &error);
    if (!json) throw ScriptError(QStringLiteral("not a JSON array of strings: %1").arg(error));
    if (!json->is_array()) throw ScriptError(QStringLiteral("not a JSON array of strings"));
    QStringList list;
    for (const Json& item : *json) {
      if (!item.is_string())
        throw ScriptError(QStringLiteral("not a JSON array of strings: element %1 is not a string").arg(list.size()));
      list.append(JsonToQString(item));
    }
    return list;
  }
};

// Bytes written as text, one character per byte (Latin-1), as they are printed.
template <>
struct WordTo<QByteArray> {
  static QByteArray Convert(const QString& word) {
    for (const QChar c : word)
      if (c.unicode() > 0xFF)
        throw ScriptError(QStringLiteral("character U+%1 is not a byte (bytes are written as U+0000 to U+00FF)")
                              .arg(c.unicode(), 4, 16, QLatin1Char('0')));
    return word.toLatin1();
  }
};

// A local file or folder by its absolute path.
template <>
struct WordTo<std::shared_ptr<FolderItem>> {
  static std::shared_ptr<FolderItem> Convert(const QString& word) {
    if (auto item = GetFolderItem(word)) return item;
    throw ScriptError(QStringLiteral("'%1' is not an absolute path").arg(word));
  }
};

// ---------------------------------------------------------------------------------------
// Values to JSON: a type without its own JsonOf<T> cannot be a result or be printed.

template <class T>
struct JsonOf {};

template <class T>
concept ToJson = requires(const T& value) { JsonOf<T>::Make(value); };

template <>
struct JsonOf<QString> {
  static Json Make(const QString& value) { return JsonString(value); }
};
template <>
struct JsonOf<qint32> {
  static Json Make(qint32 value) { return Json(value); }
};
template <>
struct JsonOf<qint64> {
  static Json Make(qint64 value) { return Json(value); }
};
template <>
struct JsonOf<bool> {
  static Json Make(bool value) { return Json(value); }
};
template <>
struct JsonOf<double> {
  static Json Make(double value) { return Json(value); }
};
template <>
struct JsonOf<QStringList> {
  static Json Make(const QStringList& value) {
    Json array = Json::array();
    for (const QString& item : value) array.push_back(JsonString(item));
    return array;
  }
};
template <>
struct JsonOf<TextEncoding> {
  static Json Make(const TextEncoding& value) { return JsonString(value.Name()); }
};
// Bytes as a string of Latin-1 characters, one per byte.
template <>
struct JsonOf<QByteArray> {
  static Json Make(const QByteArray& value) { return JsonString(QString::fromLatin1(value)); }
};
template <>
struct JsonOf<QList<std::shared_ptr<FolderItem>>> {
  static Json Make(const QList<std::shared_ptr<FolderItem>>& value) {
    Json array = Json::array();
    for (const auto& item : value) array.push_back(item ? JsonString(item->AbsolutePath()) : Json());
    return array;
  }
};

// ---------------------------------------------------------------------------------------
// The fields.

// One field reached by a path, ready to read or assign.
struct BoundField {
  std::function<Json()> get;
  std::function<void(const QString& word)> set;
};

template <class Object>
struct FieldRow {
  QString name;
  std::function<Json(Object&)> get;
  std::function<void(Object&, const QString& word)> set;  // empty: read-only
  // For an object field: resolves the rest of a dotted path in the object (nil allowed).
  std::function<BoundField(Object* object, const QString& rest, const QString& prefix)> descend;
};

template <class Object>
using FieldTable = QList<FieldRow<Object>>;

template <class Rows>
QString DidYouMean(const Rows& rows, const QString& name) {
  for (const auto& row : rows)
    if (row.name.compare(name, Qt::CaseInsensitive) == 0) return QStringLiteral(" (did you mean %1?)").arg(row.name);
  return QString();
}

template <class Object>
Json Dump(const FieldTable<Object>& table, Object& object) {
  Json json = Json::object();
  for (const auto& row : table) json[row.name.toStdString()] = row.get(object);
  return json;
}

template <class Object>
BoundField Resolve(const FieldTable<Object>& table, Object* object, const QString& path, const QString& prefix) {
  const qsizetype dot = path.indexOf(u'.');
  const QString head = dot < 0 ? path : path.left(dot);
  const QString full = prefix.isEmpty() ? head : prefix + u'.' + head;
  const FieldRow<Object>* row = nullptr;
  for (const auto& candidate : table)
    if (candidate.name == head) row = &candidate;
  if (!row) throw ScriptError(QStringLiteral("unknown field %1%2").arg(full, DidYouMean(table, head)));

  if (dot >= 0) {
    if (!row->descend) throw ScriptError(QStringLiteral("%1 has no fields to reach with '.'").arg(full));
    return row->descend(object, path.mid(dot + 1), full);
  }
  BoundField bound;
  bound.get = [row, object] { return object ? row->get(*object) : Json(); };
  bound.set = [row, object, full, prefix](const QString& word) {
    if (!row->set) throw ScriptError(QStringLiteral("%1 is read-only").arg(full));
    if (!object) throw ScriptError(QStringLiteral("cannot set %1: %2 is nil").arg(full, prefix));
    try {
      row->set(*object, word);
    } catch (const ScriptError& e) {
      throw ScriptError(QStringLiteral("%1: %2").arg(full, e.Message()));
    }
  };
  return bound;
}

// A data member; settable when its type converts from a word.
template <class Object, class T, class Owner>
FieldRow<Object> Field(const char* name, T Owner::*member) {
  static_assert(std::is_base_of_v<Owner, Object>);
  static_assert(ToJson<T>, "a field type needs a JsonOf<T> definition");
  FieldRow<Object> row;
  row.name = QString::fromLatin1(name);
  row.get = [member](Object& object) { return JsonOf<T>::Make(object.*member); };
  if constexpr (FromWord<T>)
    row.set = [member](Object& object, const QString& word) { object.*member = WordTo<T>::Convert(word); };
  return row;
}

// A text that is never shown: it prints as ******** whatever it holds.
template <class Object, class Owner>
FieldRow<Object> Secret(const char* name, QString Owner::*member) {
  FieldRow<Object> row;
  row.name = QString::fromLatin1(name);
  row.get = [](Object&) { return JsonString(QStringLiteral("********")); };
  row.set = [member](Object& object, const QString& word) { object.*member = word; };
  return row;
}

// A value read (and perhaps written) through accessor methods.
template <class Object, class T, class Owner>
FieldRow<Object> Property(const char* name, T (Owner::*getter)() const) {
  static_assert(std::is_base_of_v<Owner, Object>);
  FieldRow<Object> row;
  row.name = QString::fromLatin1(name);
  row.get = [getter](Object& object) { return JsonOf<std::decay_t<T>>::Make((object.*getter)()); };
  return row;
}

template <class Object, class T, class Owner, class Arg, class SetterOwner>
FieldRow<Object> Property(const char* name, T (Owner::*getter)() const, void (SetterOwner::*setter)(Arg)) {
  static_assert(std::is_base_of_v<SetterOwner, Object>);
  FieldRow<Object> row = Property<Object>(name, getter);
  row.set = [setter](Object& object, const QString& word) {
    (object.*setter)(WordTo<std::decay_t<Arg>>::Convert(word));
  };
  return row;
}

// The table of fields of a class, found by its type: a class with a Fields<T>
// definition prints as an object of those fields, through a shared pointer or in a
// list, and a dotted path reaches into it.
template <class T>
struct Fields {};

template <class T>
concept HasFields = requires { Fields<T>::Table(); };

template <class T>
  requires HasFields<T>
struct JsonOf<std::shared_ptr<T>> {
  static Json Make(const std::shared_ptr<T>& value) { return value ? Dump(Fields<T>::Table(), *value) : Json(); }
};

template <class T>
  requires HasFields<T>
struct JsonOf<QList<std::shared_ptr<T>>> {
  static Json Make(const QList<std::shared_ptr<T>>& value) {
    Json array = Json::array();
    for (const auto& item : value) array.push_back(JsonOf<std::shared_ptr<T>>::Make(item));
    return array;
  }
};

// An object held by a shared pointer: prints as an object of its own fields, or null;
// a dotted path reaches its fields; `set NAME null` lets go of it.
template <class Object, class Child, class Owner>
FieldRow<Object> ObjectField(const char* name, std::shared_ptr<Child> Owner::*member) {
  static_assert(HasFields<Child>, "an object field needs a Fields<T> definition");
  FieldRow<Object> row;
  row.name = QString::fromLatin1(name);
  row.get = [member](Object& object) { return JsonOf<std::shared_ptr<Child>>::Make(object.*member); };
  row.set = [member](Object& object, const QString& word) {
    if (word != u"null") throw ScriptError(QStringLiteral("an object field can only be set to null"));
    object.*member = nullptr;
  };
  row.descend = [member](Object* object, const QString& rest, const QString& prefix) {
    Child* child = object ? (object->*member).get() : nullptr;
    return Resolve(Fields<Child>::Table(), child, rest, prefix);
  };
  return row;
}

template <class Object>
FieldRow<Object> Custom(const char* name, std::function<Json(Object&)> get,
                        std::function<void(Object&, const QString&)> set = {}) {
  FieldRow<Object> row;
  row.name = QString::fromLatin1(name);
  row.get = std::move(get);
  row.set = std::move(set);
  return row;
}

template <>
struct Fields<FTPDataSocket> {
  static const FieldTable<FTPDataSocket>& Table() {
    using D = FTPDataSocket;
    static const FieldTable<D> table = {
        Field<D>("FileName", &D::FileName),
        Field<D>("FileList", &D::FileList),
        Field<D>("BytesSent", &D::BytesSent),
        Field<D>("ByteCount", &D::ByteCount),
        Field<D>("FileData", &D::FileData),
        Field<D>("Address", &D::Address),
        Field<D>("Port", &D::Port),
        Field<D>("ConnectionType", &D::ConnectionType),
        Property<D>("LocalAddress", &D::LocalAddress),
        Property<D>("LastErrorCode", &D::LastErrorCode),
        Property<D>("IsConnected", &D::IsConnected),
        Property<D>("IsListening", &D::IsListening),
    };
    return table;
  }
};

template <>
struct Fields<FTPCommandSocket> {
  static const FieldTable<FTPCommandSocket>& Table() {
    using C = FTPCommandSocket;
    static const FieldTable<C> table = {
        Field<C>("Address", &C::Address),
        Field<C>("Port", &C::Port),
        Field<C>("ConnectionType", &C::ConnectionType),
        Property<C>("LocalAddress", &C::LocalAddress),
        Property<C>("LastErrorCode", &C::LastErrorCode),
        Property<C>("IsConnected", &C::IsConnected),
        Property<C>("IsListening", &C::IsListening),
        Property<C>("Secure", &C::Secure, &C::SetSecure),
        Property<C>("SSLConnected", &C::SSLConnected),
    };
    return table;
  }
};

template <>
struct Fields<FTPConnectionTimer> {
  static const FieldTable<FTPConnectionTimer>& Table() {
    using T = FTPConnectionTimer;
    static const FieldTable<T> table = {
        Property<T>("Mode", &T::Mode, &T::SetMode),
        Property<T>("Period", &T::Period, &T::SetPeriod),
    };
    return table;
  }
};

template <>
struct Fields<FTPDirectoryClass> {
  static const FieldTable<FTPDirectoryClass>& Table() {
    using D = FTPDirectoryClass;
    static const FieldTable<D> table = {
        Field<D>("Files", &D::Files),
        Field<D>("Name", &D::Name),
        Field<D>("SubDirectories", &D::SubDirectories),
        Field<D>("CurrentSubDirectory", &D::CurrentSubDirectory),
        Field<D>("ParentDirectory", &D::ParentDirectory),
    };
    return table;
  }
};

template <>
struct Fields<FTPParsedDirListLineClass> {
  static const FieldTable<FTPParsedDirListLineClass>& Table() {
    using L = FTPParsedDirListLineClass;
    static const FieldTable<L> table = {
        Field<L>("Name", &L::Name),         Field<L>("IsDir", &L::IsDir),
        Field<L>("IsFile", &L::IsFile),     Field<L>("Size", &L::Size),
        Field<L>("ModTime", &L::ModTime),   Field<L>("ModDate", &L::ModDate),
        Field<L>("Permissions", &L::Permissions),
    };
    return table;
  }
};

// Buffer holds bytes; it is read and written as text of the session's encoding.
Json BufferText(FTPSessionClass& session) {
  return JsonString(session.ServerTextEncoding.Decode(session.Buffer));
}
void SetBufferText(FTPSessionClass& session, const QString& word) {
  session.Buffer = session.ServerTextEncoding.Encode(word);
}

// The receiver prints as {"Session": ID of the session it reports for}, or null.
Json ReceiverJson(FTPSessionClass& session) {
  if (!session.FTPStatusInstance) return Json();
  const FTPSessionClass* owner = session.FTPStatusInstance->Session;
  return Json::object({{"Session", owner ? JsonString(owner->ID) : Json()}});
}
void SetReceiver(FTPSessionClass& session, const QString& word) {
  if (word != u"null")
    throw ScriptError(QStringLiteral("can only be set to null (SetStatusReporting true makes a new one)"));
  session.FTPStatusInstance = nullptr;
}

// The table of fields: every public field of the session, in declared order.
const FieldTable<FTPSessionClass>& SessionFields() {
  using S = FTPSessionClass;
  static const FieldTable<S> table = {
      Field<S>("ServerAddress", &S::ServerAddress),
      Field<S>("ServerUserID", &S::ServerUserID),
      Secret<S>("ServerPassword", &S::ServerPassword),
      Field<S>("ServerDirectory", &S::ServerDirectory),
      Field<S>("LocalDirectory", &S::LocalDirectory),
      Field<S>("Files", &S::Files),
      Custom<S>("Buffer", BufferText, SetBufferText),
      Field<S>("SendBufferSize", &S::SendBufferSize),
      Field<S>("BytesReceived", &S::BytesReceived),
      Field<S>("CurrentDirectoryIndex", &S::CurrentDirectoryIndex),
      Field<S>("CurrentFileIndex", &S::CurrentFileIndex),
      Field<S>("DirectoryFileList", &S::DirectoryFileList),
      Field<S>("DirList", &S::DirList),
      Field<S>("NT", &S::NT),
      Field<S>("Paths", &S::Paths),
      Field<S>("DataPortStart", &S::DataPortStart),
      Field<S>("DataPortEnd", &S::DataPortEnd),
      Field<S>("DataPort", &S::DataPort),
      Field<S>("Timeout", &S::Timeout),
      Field<S>("UseNameList", &S::UseNameList),
      Field<S>("ChmodMask", &S::ChmodMask),
      Field<S>("ServerTextEncoding", &S::ServerTextEncoding),
      Field<S>("ShowInvisible", &S::ShowInvisible),
      Field<S>("CommandPort", &S::CommandPort),
      Field<S>("PassivePort", &S::PassivePort),
      Field<S>("IgnoreCancel", &S::IgnoreCancel),
      Field<S>("VelmarCRLF", &S::VelmarCRLF),
      Custom<S>("FTPStatusInstance", ReceiverJson, SetReceiver),
      Field<S>("FTPSessionType", &S::FTPSessionType),
      Field<S>("FileDelimiter", &S::FileDelimiter),
      Field<S>("FileCount", &S::FileCount),
      Field<S>("DeleteDirectory", &S::DeleteDirectory),
      ObjectField<S>("DataSocket", &S::DataSocket),
      Field<S>("CurrentWorkingDirectory", &S::CurrentWorkingDirectory),
      Field<S>("CurrentFTPStep", &S::CurrentFTPStep),
      ObjectField<S>("ConnectionTimer", &S::ConnectionTimer),
      ObjectField<S>("CommandSocket", &S::CommandSocket),
      Field<S>("ID", &S::ID),
      Field<S>("PassiveMode", &S::PassiveMode),
      Field<S>("FTPTransferType", &S::FTPTransferType),
      Field<S>("FileFolderItems", &S::FileFolderItems),
      Field<S>("SessionStartTime", &S::SessionStartTime),
      Field<S>("RestartByteCount", &S::RestartByteCount),
      Field<S>("DirectCommand", &S::DirectCommandText),
      Field<S>("FTPS", &S::FTPS),
      Field<S>("MaxReplyLineLength", &S::MaxReplyLineLength),
      Field<S>("WaitForDataClose", &S::WaitForDataClose),
      Field<S>("SecureDataConnection", &S::SecureDataConnection),
      Field<S>("VerifyServerCertificate", &S::VerifyServerCertificate),
      Field<S>("TrustedCertificateFile", &S::TrustedCertificateFile),
  };
  return table;
}

// ---------------------------------------------------------------------------------------
// The operations.

struct OperationRow {
  QString name;
  int arity = 0;
  std::function<std::optional<Json>(FTPSessionClass&, const QStringList&)> run;
};

template <class T>
T ConvertArgument(const QString& operation, const QStringList& words, qsizetype index) {
  try {
    return WordTo<T>::Convert(words[index]);
  } catch (const ScriptError& e) {
    throw ScriptError(QStringLiteral("%1: argument %2: %3").arg(operation).arg(index + 1).arg(e.Message()));
  }
}

template <class R, class... Args, class F, std::size_t... I>
std::optional<Json> InvokeWithWords(const QString& operation, const QStringList& words, F&& call,
                                    std::index_sequence<I...>) {
  static_assert((FromWord<std::decay_t<Args>> && ...), "a parameter type needs a WordTo<T> definition");
  // Braced initialisation converts the words from left to right, so the first bad one is named.
  std::tuple<std::decay_t<Args>...> arguments{ConvertArgument<std::decay_t<Args>>(operation, words, I)...};
  (void)operation;
  (void)words;
  if constexpr (std::is_void_v<R>) {
    std::apply(call, arguments);
    return std::nullopt;
  } else {
    static_assert(ToJson<std::decay_t<R>>, "a result type needs a JsonOf<T> definition");
    return JsonOf<std::decay_t<R>>::Make(std::apply(call, arguments));
  }
}

template <class Signature>
struct MethodRow;

template <class R, class... Args>
struct MethodRow<R(Args...)> {
  static OperationRow Make(const char* name, R (FTPSessionClass::*method)(Args...)) {
    const QString operation = QString::fromLatin1(name);
    return {operation, static_cast<int>(sizeof...(Args)),
            [operation, method](FTPSessionClass& session, const QStringList& words) {
              return InvokeWithWords<R, Args...>(
                  operation, words, [&](auto&... a) -> R { return (session.*method)(a...); },
                  std::index_sequence_for<Args...>{});
            }};
  }
};

template <class R, class... Args>
struct MethodRow<R(Args...) const> {
  static OperationRow Make(const char* name, R (FTPSessionClass::*method)(Args...) const) {
    const QString operation = QString::fromLatin1(name);
    return {operation, static_cast<int>(sizeof...(Args)),
            [operation, method](FTPSessionClass& session, const QStringList& words) {
              return InvokeWithWords<R, Args...>(
                  operation, words, [&](auto&... a) -> R { return (session.*method)(a...); },
                  std::index_sequence_for<Args...>{});
            }};
  }
};

// A member function of the session. For an overloaded name give the signature:
// Method<void(qint32)>("ParseCommandBuffer", &FTPSessionClass::ParseCommandBuffer).
template <class Signature>
OperationRow Method(const char* name, Signature FTPSessionClass::*method) {
  return MethodRow<Signature>::Make(name, method);
}

// An operation of the shell's own making: a function that takes the session first.
template <class R, class... Args>
OperationRow Function(const char* name, R (*function)(FTPSessionClass&, Args...)) {
  const QString operation = QString::fromLatin1(name);
  return {operation, static_cast<int>(sizeof...(Args)),
          [operation, function](FTPSessionClass& session, const QStringList& words) {
            return InvokeWithWords<R, Args...>(
                operation, words, [&](auto&... a) -> R { return function(session, a...); },
                std::index_sequence_for<Args...>{});
          }};
}

// FormatBytes N: the size text of the session's status receiver.
QString FormatBytesOfReceiver(FTPSessionClass& session, qint32 bytes) {
  if (!session.FTPStatusInstance) throw ScriptError(QStringLiteral("FormatBytes: FTPStatusInstance is nil"));
  return session.FTPStatusInstance->FormatBytes(bytes);
}

// THE table of operations: one row per operation, in the order of the session's header.
const QList<OperationRow>& Operations() {
  using S = FTPSessionClass;
  static const QList<OperationRow> table = {
      Method("SetLoginInfo", &S::SetLoginInfo),
      Method("AddFileName", &S::AddFileName),
      Method("SetLocalDirectoryPathName", &S::SetLocalDirectoryPathName),
      Method("SetServerDirectoryPathName", &S::SetServerDirectoryPathName),
      Method("GetLocalDirectoryPathName", &S::GetLocalDirectoryPathName),
      Method("GetServerDirectoryPathName", &S::GetServerDirectoryPathName),
      Method("GetNextFileName", &S::GetNextFileName),
      Method("NextDataPort", &S::NextDataPort),
      Method("SetTimeoutSeconds", &S::SetTimeoutSeconds),
      Method("SetStatusReporting", &S::SetStatusReporting),
      Method("SetServerEncoding", &S::SetServerEncoding),
      Method("SetLocalFolderItem", &S::SetLocalFolderItem),
      Method("SetDataPortRange", &S::SetDataPortRange),
      Method("ChangeDir", &S::ChangeDir),
      Method("ChmodSingleFile", &S::ChmodSingleFile),
      Method("DeleteDir", &S::DeleteDir),
      Method("DeleteSingleFile", &S::DeleteSingleFile),
      Method("EndFTPSession", &S::EndFTPSession),
      Method("GetCurrentFTPStep", &S::GetCurrentFTPStep),
      Method("GetDir", &S::GetDir),
      Method("GetDirFromPath", &S::GetDirFromPath),
      Method("GetDirList", &S::GetDirList),
      Method("GetFiles", &S::GetFiles),
      Method("GetSingleFile", &S::GetSingleFile),
      Method("GetStatus", &S::GetStatus),
      Method("GetSystemInfo", &S::GetSystemInfo),
      Method("GetWorkingDir", &S::GetWorkingDir),
      Method("Logoff", &S::Logoff),
      Method("Logon", &S::Logon),
      Method("MakeDir", &S::MakeDir),
      Method("NextFTPStep", &S::NextFTPStep),
      Method<void()>("ParseCommandBuffer", &S::ParseCommandBuffer),
      Method("PutDir", &S::PutDir),
      Method("PutSingleFile", &S::PutSingleFile),
      Method("RemoveDir", &S::RemoveDir),
      Method("RenameSingleFile", &S::RenameSingleFile),
      Method("ResetConnectionTimer", &S::ResetConnectionTimer),
      Method("StartDeleteDir", &S::StartDeleteDir),
      Method("StartDeleteFile", &S::StartDeleteFile),
      Method("StartGetDir", &S::StartGetDir),
      Method("StartGetDirList", &S::StartGetDirList),
      Method("StartGetFile", &S::StartGetFile),
      Method("StartPutDir", &S::StartPutDir),
      Method("StartPutFile", &S::StartPutFile),
      Method("StartRenameFile", &S::StartRenameFile),
      Method("GetFTPSessionType", &S::GetFTPSessionType),
      Method<void(qint32)>("ParseCommandBuffer", &S::ParseCommandBuffer),
      Method("ParseDirListLine", &S::ParseDirListLine),
      Method("ParentDir", &S::ParentDir),
      Method("RestartGetSingleFile", &S::RestartGetSingleFile),
      Method("RestartPutSingleFile", &S::RestartPutSingleFile),
      Method("AbortTransfer", &S::AbortTransfer),
      Method("SITECommand", &S::SITECommand),
      Method("DirectCommand", &S::DirectCommand),
      Method("ExecuteDirectCommandSteps", &S::ExecuteDirectCommandSteps),
      Method("GetVelmarVersion", &S::GetVelmarVersion),
      Method("SocketsActive", &S::SocketsActive),
      Method("SuccessfulMessage", &S::SuccessfulMessage),
      Method("Squeeze", &S::Squeeze),
      Method("BuildPortString", &S::BuildPortString),
      Method("CalcSetPassivePort", &S::CalcSetPassivePort),
      Method("CalculatePassivePort", &S::CalculatePassivePort),
      Method("SetPassivePort", &S::SetPassivePort),
      Method("GetFileCount", &S::GetFileCount),
      Method("GetFileFromPath", &S::GetFileFromPath),
      Method("UpOneLocalDirectory", &S::UpOneLocalDirectory),
      Method("DeleteLocalFile", &S::DeleteLocalFile),
      Method("GetCurrentDirectoryIndex", &S::GetCurrentDirectoryIndex),
      // The machines, in the order of the dispatch table: a reply line and its code.
      Method("ExecuteAbortTransferSteps", &S::ExecuteAbortTransferSteps),
      Method("ExecuteChangeDirSteps", &S::ExecuteChangeDirSteps),
      Method("ExecuteParentDirSteps", &S::ExecuteParentDirSteps),
      Method("ExecutePutDirSteps", &S::ExecutePutDirSteps),
      Method("ExecutePutDirImmediateSteps", &S::ExecutePutDirImmediateSteps),
      Method("ExecutePutFileSteps", &S::ExecutePutFileSteps),
      Method("ExecutePutSingleFileSteps", &S::ExecutePutSingleFileSteps),
      Method("ExecuteRestartPutSingleFileSteps", &S::ExecuteRestartPutSingleFileSteps),
      Method("ExecuteGetDirListSteps", &S::ExecuteGetDirListSteps),
      Method("ExecuteGetDirListImmediateSteps", &S::ExecuteGetDirListImmediateSteps),
      Method("ExecuteGetFileSteps", &S::ExecuteGetFileSteps),
      Method("ExecuteGetSingleFileSteps", &S::ExecuteGetSingleFileSteps),
      Method("ExecuteRestartGetSingleFileSteps", &S::ExecuteRestartGetSingleFileSteps),
      Method("ExecuteGetDirSteps", &S::ExecuteGetDirSteps),
      Method("ExecuteGetDirImmediateSteps", &S::ExecuteGetDirImmediateSteps),
      Method("ExecuteDeleteFileSteps", &S::ExecuteDeleteFileSteps),
      Method("ExecuteDeleteSingleFileSteps", &S::ExecuteDeleteSingleFileSteps),
      Method("ExecuteDeleteDirSteps", &S::ExecuteDeleteDirSteps),
      Method("ExecuteDeleteDirImmediateSteps", &S::ExecuteDeleteDirImmediateSteps),
      Method("ExecuteRemoveDirSteps", &S::ExecuteRemoveDirSteps),
      Method("ExecuteMakeDirSteps", &S::ExecuteMakeDirSteps),
      Method("ExecuteRenameFileSteps", &S::ExecuteRenameFileSteps),
      Method("ExecuteRenameSingleFileSteps", &S::ExecuteRenameSingleFileSteps),
      Method("ExecuteChmodSingleFileSteps", &S::ExecuteChmodSingleFileSteps),
      Method("ExecuteGetWorkingDirSteps", &S::ExecuteGetWorkingDirSteps),
      Method("ExecuteLogonSteps", &S::ExecuteLogonSteps),
      Method("ExecuteLogoffSteps", &S::ExecuteLogoffSteps),
      Method("ExecuteSystemInfoSteps", &S::ExecuteSystemInfoSteps),
      Method("ExecuteStatusSteps", &S::ExecuteStatusSteps),
      Method("ExecuteSITESteps", &S::ExecuteSITESteps),
      Function("FormatBytes", &FormatBytesOfReceiver),
  };
  return table;
}

template <class Child>
void AppendDotted(QStringList& names, const QString& prefix, const FieldTable<Child>& table) {
  for (const auto& row : table) names.append(prefix + u'.' + row.name);
}

}  // namespace

bool ShellOperations::HasOperation(const QString& name) {
  for (const auto& row : Operations())
    if (row.name == name) return true;
  return false;
}

std::optional<Json> ShellOperations::Call(FTPSessionClass& session, const QString& name, const QStringList& words) {
  QList<int> arities;
  for (const auto& row : Operations()) {
    if (row.name != name) continue;
    if (row.arity == words.size()) return row.run(session, words);
    arities.append(row.arity);
  }
  if (arities.isEmpty()) throw ScriptError(QStringLiteral("unknown method %1%2").arg(name, DidYouMean(Operations(), name)));
  QStringList counts;
  for (int arity : arities) counts.append(QString::number(arity));
  throw ScriptError(QStringLiteral("%1 takes %2 argument%3, got %4")
                        .arg(name, counts.join(QStringLiteral(" or ")),
                             arities.size() == 1 && arities[0] == 1 ? QString() : QStringLiteral("s"))
                        .arg(words.size()));
}

Json ShellOperations::Get(FTPSessionClass& session, const QString& path) {
  return Resolve(SessionFields(), &session, path, QString()).get();
}

void ShellOperations::Set(FTPSessionClass& session, const QString& path, const QString& word) {
  Resolve(SessionFields(), &session, path, QString()).set(word);
}

QStringList ShellOperations::OperationNames() {
  QStringList names;
  for (const auto& row : Operations())
    if (!names.contains(row.name)) names.append(row.name);
  return names;
}

QStringList ShellOperations::FieldNames() {
  QStringList names;
  for (const auto& row : SessionFields()) names.append(row.name);
  AppendDotted(names, QStringLiteral("DataSocket"), Fields<FTPDataSocket>::Table());
  AppendDotted(names, QStringLiteral("CommandSocket"), Fields<FTPCommandSocket>::Table());
  AppendDotted(names, QStringLiteral("ConnectionTimer"), Fields<FTPConnectionTimer>::Table());
  return names;
}

}  // namespace velmar
