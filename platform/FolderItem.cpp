#include "platform/FolderItem.h"

#include "platform/BinaryStream.h"
#include "platform/TextInputStream.h"
#include "platform/TextOutputStream.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace velmar {

namespace {

// A POSIX mode (0600) as Qt permissions; only the owner/group/other bits count.
QFileDevice::Permissions PermissionsFromMode(int mode) {
  QFileDevice::Permissions p;
  if (mode & 0400) p |= QFileDevice::ReadOwner | QFileDevice::ReadUser;
  if (mode & 0200) p |= QFileDevice::WriteOwner | QFileDevice::WriteUser;
  if (mode & 0100) p |= QFileDevice::ExeOwner | QFileDevice::ExeUser;
  if (mode & 0040) p |= QFileDevice::ReadGroup;
  if (mode & 0020) p |= QFileDevice::WriteGroup;
  if (mode & 0010) p |= QFileDevice::ExeGroup;
  if (mode & 0004) p |= QFileDevice::ReadOther;
  if (mode & 0002) p |= QFileDevice::WriteOther;
  if (mode & 0001) p |= QFileDevice::ExeOther;
  return p;
}

// Stats anew on every call: an item answers for the file system as it is now.
QFileInfo Info(const QString& path) {
  QFileInfo info(path);
  info.setCaching(false);
  return info;
}

// cleanPath resolves "." and ".." but keeps a ".." above the root, which the file system
// takes as the root itself.
QString CleanPath(const QString& path) {
  QString cleaned = QDir::cleanPath(path);
  while (cleaned == u"/.." || cleaned.startsWith(u"/../"))
    cleaned = cleaned.size() == 3 ? QStringLiteral("/") : cleaned.mid(3);
  return cleaned;
}

}  // namespace

FolderItem::FolderItem(const QString& absolutePath) : path_(CleanPath(absolutePath)) {}

std::shared_ptr<FolderItem> FolderItem::Child(const QString& name) const {
  if (name.isEmpty() || name == u"." || name == u".." || name.contains(u'/') || name.contains(QChar(0)))
    return nullptr;
  if (!Directory()) return nullptr;
  return std::make_shared<FolderItem>(path_ == u"/" ? path_ + name : path_ + u'/' + name);
}

bool FolderItem::Exists() const { return Info(path_).exists(); }

bool FolderItem::Directory() const { return Info(path_).isDir(); }

QString FolderItem::Name() const { return path_ == u"/" ? QString() : Info(path_).fileName(); }

QString FolderItem::AbsolutePath() const {
  if (path_ != u"/" && Directory()) return path_ + u'/';
  return path_;
}

qint64 FolderItem::Length() const {
  const QFileInfo info = Info(path_);
  return info.isFile() ? info.size() : 0;
}

int FolderItem::Count() const {
  listing_.reset();
  if (!Directory()) return 0;
  QDir dir(path_);
  QStringList names =
      dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort);
  // Plain order of code units, independent of the locale, so walks are reproducible.
  std::sort(names.begin(), names.end());
  listing_ = names;
  return static_cast<int>(names.size());
}

std::shared_ptr<FolderItem> FolderItem::Item(int index) const {
  if (!listing_) Count();
  if (!listing_ || index < 1 || index > listing_->size()) return nullptr;
  return Child(listing_->at(index - 1));
}

bool FolderItem::Delete() {
  const QFileInfo info = Info(path_);
  bool removed = false;
  if (info.isDir() && !info.isSymLink()) {
    removed = QDir().rmdir(path_);
    if (!removed) lastError_ = QStringLiteral("cannot remove folder %1 (not empty or not permitted)").arg(path_);
  } else if (BinaryStream::IsOpenForWriting(path_)) {
    // A file this process is writing (a download deletes its target right after creating
    // it) is emptied, not unlinked, so that the bytes written next land in a file of
    // that name.
    removed = QFile::resize(path_, 0);
    if (!removed) lastError_ = QStringLiteral("cannot empty %1").arg(path_);
  } else {
    QFile file(path_);
    removed = file.remove();
    if (!removed) lastError_ = file.errorString();
  }
  return removed;
}

bool FolderItem::CreateAsFolder() {
  if (Directory()) return true;
  if (QDir().mkdir(path_)) return true;
  lastError_ = QStringLiteral("cannot create folder %1").arg(path_);
  return false;
}

std::shared_ptr<BinaryStream> FolderItem::CreateBinaryFile(const QString& type) {
  Q_UNUSED(type);
  if (Directory()) {
    lastError_ = QStringLiteral("%1 is a folder").arg(path_);
    return nullptr;
  }
  auto file = std::make_unique<QFile>(path_);
  if (!file->open(QIODevice::ReadWrite | QIODevice::Truncate | QIODevice::Unbuffered)) {
    lastError_ = file->errorString();
    return nullptr;
  }
  return std::make_shared<BinaryStream>(std::move(file));
}

std::shared_ptr<BinaryStream> FolderItem::OpenAsBinaryFile(bool writable) {
  if (Directory()) {
    lastError_ = QStringLiteral("%1 is a folder").arg(path_);
    return nullptr;
  }
  auto file = std::make_unique<QFile>(path_);
  // ExistingOnly: opening for writing must not create a missing file.
  const QIODevice::OpenMode mode = (writable ? QIODevice::ReadWrite : QIODevice::ReadOnly) |
                                   QIODevice::ExistingOnly | QIODevice::Unbuffered;
  if (!file->open(mode)) {
    lastError_ = file->errorString();
    return nullptr;
  }
  return std::make_shared<BinaryStream>(std::move(file));
}

std::shared_ptr<TextOutputStream> FolderItem::CreateTextFile(int permissions) {
  if (Directory()) {
    lastError_ = QStringLiteral("%1 is a folder").arg(path_);
    return nullptr;
  }
  auto file = std::make_unique<QFile>(path_);
  const QIODevice::OpenMode mode = QIODevice::WriteOnly | QIODevice::Truncate;
  // A new file gets the mode from its creation on, so it is never readable by others even
  // for a moment; an existing one is set to it before anything is written.
  const bool opened = permissions < 0 ? file->open(mode) : file->open(mode, PermissionsFromMode(permissions));
  if (!opened) {
    lastError_ = file->errorString();
    return nullptr;
  }
  if (permissions >= 0 && !file->setPermissions(PermissionsFromMode(permissions))) {
    lastError_ = file->errorString();
    file->close();
    return nullptr;
  }
  return std::make_shared<TextOutputStream>(std::move(file));
}

std::shared_ptr<TextInputStream> FolderItem::OpenAsTextFile() {
  if (Directory()) {
    lastError_ = QStringLiteral("%1 is a folder").arg(path_);
    return nullptr;
  }
  auto file = std::make_unique<QFile>(path_);
  if (!file->open(QIODevice::ReadOnly | QIODevice::ExistingOnly)) {
    lastError_ = file->errorString();
    return nullptr;
  }
  return std::make_shared<TextInputStream>(std::move(file));
}

std::shared_ptr<FolderItem> GetFolderItem(const QString& path) {
  if (path.isEmpty() || !path.startsWith(u'/') || path.contains(QChar(0))) return nullptr;
  return std::make_shared<FolderItem>(path);
}

std::shared_ptr<FolderItem> PreferencesFolder() {
  QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
  // The XDG rules say a relative value is to be ignored.
  if (!base.startsWith(u'/')) base = QDir::homePath() + QStringLiteral("/.config");
  const QString path = QDir::cleanPath(base);
  if (!QFileInfo::exists(path) && QDir().mkpath(path))
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
  return std::make_shared<FolderItem>(path);
}

}  // namespace velmar
