#pragma once
// A list of rows of text cells with a heading, the framework's Listbox: rows are addressed
// by number (0-based), the selected row is ListIndex (-1 when none).
#include <QString>
#include <QStringList>
#include <QTreeWidget>

namespace velmar {

class Listbox : public QTreeWidget {
public:
  // columnWidths as the framework writes them: one entry per column, separated by commas,
  // "N%" of the list's width, "N" pixels, or "*" (also "2*") for a share of what is left;
  // columns without an entry take a share of "*".
  Listbox(QWidget* parent, const QStringList& headings, const QString& columnWidths);

  void DeleteAllRows();
  void AddRow(const QString& text);
  int ListCount() const;
  int ListIndex() const;
  void SetListIndex(int row);
  // Empty for a cell out of range.
  QString Cell(int row, int column) const;
  void SetCell(int row, int column, const QString& text);
  // The tooltip of every cell of a row (empty: none); empty for a row out of range.
  QString RowToolTip(int row) const;
  void SetRowToolTip(int row, const QString& text);
  // A number kept with a row for its owner's use; 0 for a new row or one out of range.
  quint64 RowTag(int row) const;
  void SetRowTag(int row, quint64 tag);

  // Applies the column widths to `width` pixels of visible list.
  void LayoutColumns(int width);
  QString ColumnWidths() const { return columnWidths_; }

protected:
  bool viewportEvent(QEvent* event) override;

private:
  QString columnWidths_;
};

}  // namespace velmar
