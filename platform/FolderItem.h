#pragma once
// A file or folder of the local file system, addressed by its absolute POSIX path. The item
// is only a path: it may name something that does not exist (yet), and every question is
// answered from the file system at the time it is asked.
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

namespace velmar {

class BinaryStream;
class TextInputStream;
class TextOutputStream;

class FolderItem {
public:
  // An absolute path; "." and ".." are resolved and a trailing "/" dropped. Use GetFolderItem,
  // which refuses paths that are not absolute.
  explicit FolderItem(const QString& absolutePath);

  // The item called name inside this folder; nullptr when this is not a folder or name is not a
  // plain name (empty, ".", "..", or holding "/").
  std::shared_ptr<FolderItem> Child(const QString& name) const;

  bool Exists() const;
  // True for a folder (also a link to one).
  bool Directory() const;
  // The last component of the path ("" for the root).
  QString Name() const;
  // The absolute path; a folder's ends in "/".
  QString AbsolutePath() const;
  // Size in bytes; 0 for a folder or a missing item.
  qint64 Length() const;

  // The number of entries of a folder (hidden ones included, "." and ".." not); 0 otherwise.
  // It reads the folder anew and keeps that listing for Item.
  int Count() const;
  // Entry index (1-based) of the folder in order of name, from the listing of the last Count()
  // (read if none yet), so a walk 1..Count() sees each entry once even while it deletes
  // entries; nullptr out of range.
  std::shared_ptr<FolderItem> Item(int index) const;

  // Removes a file (or link) or an empty folder.
  bool Delete();
  // Creates this item as a folder inside its existing parent; true also when it already is one.
  bool CreateAsFolder();

  // Creates the file, or empties it, and opens it for reading and writing; nullptr on
  // failure. type is the framework's file type name and has no meaning here.
  std::shared_ptr<BinaryStream> CreateBinaryFile(const QString& type = QString());
  // Opens the existing file, read-only or read-write without emptying it; nullptr when it is
  // missing, a folder or cannot be opened.
  std::shared_ptr<BinaryStream> OpenAsBinaryFile(bool writable = false);
  // Creates the file, or empties it, for writing text. permissions is a POSIX mode such as
  // 0600, applied whether the file is new or not; -1 leaves the default (new files per umask).
  std::shared_ptr<TextOutputStream> CreateTextFile(int permissions = -1);
  // Opens the existing file for reading text; nullptr when missing, a folder or unreadable.
  std::shared_ptr<TextInputStream> OpenAsTextFile();

  // The description of the last failure of Delete, CreateAsFolder or an open.
  QString LastError() const { return lastError_; }

private:
  QString path_;  // cleaned, without a trailing "/" except for the root
  mutable std::optional<QStringList> listing_;
  QString lastError_;
};

// The item at an absolute path, existing or not; nullptr for an empty or relative path.
std::shared_ptr<FolderItem> GetFolderItem(const QString& path);

// The folder for preferences: $XDG_CONFIG_HOME if it is an absolute path, else ~/.config;
// created (mode 0700) when missing.
std::shared_ptr<FolderItem> PreferencesFolder();

}  // namespace velmar
