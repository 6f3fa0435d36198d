#pragma once
// The items of one drag: the local files and folders it carries, visited one at a time.
// Entries that are not local files (web links, text) are not items of the drag.
#include <QList>
#include <QString>
#include <QUrl>
#include <memory>

namespace velmar {

class FileType;
class FolderItem;

class DragItem {
public:
  // Keeps the local files of urls that `accepted` takes (all local files when nullptr).
  DragItem(const QList<QUrl>& urls, const std::shared_ptr<FileType>& accepted);

  // True when the current item is a local file or folder; false for a drag without any.
  bool FolderItemAvailable() const;
  // The current item; a folder's path is given with a trailing "/". nullptr when none.
  std::shared_ptr<velmar::FolderItem> FolderItem() const;
  // Moves to the next item; false when there is none.
  bool NextItem();

  // The local paths of all items, in order.
  QStringList Paths() const { return paths_; }

private:
  QStringList paths_;
  qsizetype current_ = 0;
};

}  // namespace velmar
