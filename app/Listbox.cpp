#include "app/Listbox.h"

#include <QEvent>
#include <QHeaderView>

#include <cmath>

namespace velmar {

Listbox::Listbox(QWidget* parent, const QStringList& headings, const QString& columnWidths)
    : QTreeWidget(parent), columnWidths_(columnWidths) {
  setColumnCount(static_cast<int>(headings.size()));
  setHeaderLabels(headings);
  setRootIsDecorated(false);
  setItemsExpandable(false);
  setUniformRowHeights(true);
  setSelectionMode(QAbstractItemView::SingleSelection);
  setSelectionBehavior(QAbstractItemView::SelectRows);
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  header()->setStretchLastSection(false);
  header()->setSectionsMovable(false);
  LayoutColumns(contentsRect().width());
}

void Listbox::DeleteAllRows() { clear(); }

void Listbox::AddRow(const QString& text) {
  auto* item = new QTreeWidgetItem(this);
  item->setText(0, text);
}

int Listbox::ListCount() const { return topLevelItemCount(); }

int Listbox::ListIndex() const {
  const QList<QTreeWidgetItem*> selected = selectedItems();
  return selected.isEmpty() ? -1 : indexOfTopLevelItem(selected.first());
}

void Listbox::SetListIndex(int row) {
  clearSelection();
  if (QTreeWidgetItem* item = topLevelItem(row)) {
    item->setSelected(true);
    setCurrentItem(item);
  }
}

QString Listbox::Cell(int row, int column) const {
  const QTreeWidgetItem* item = topLevelItem(row);
  return item && column >= 0 && column < columnCount() ? item->text(column) : QString();
}

void Listbox::SetCell(int row, int column, const QString& text) {
  if (QTreeWidgetItem* item = topLevelItem(row); item && column >= 0 && column < columnCount())
    item->setText(column, text);
}

QString Listbox::RowToolTip(int row) const {
  const QTreeWidgetItem* item = topLevelItem(row);
  return item ? item->toolTip(0) : QString();
}

void Listbox::SetRowToolTip(int row, const QString& text) {
  if (QTreeWidgetItem* item = topLevelItem(row))
    for (int column = 0; column < columnCount(); ++column) item->setToolTip(column, text);
}

quint64 Listbox::RowTag(int row) const {
  const QTreeWidgetItem* item = topLevelItem(row);
  return item ? item->data(0, Qt::UserRole).toULongLong() : 0;
}

void Listbox::SetRowTag(int row, quint64 tag) {
  if (QTreeWidgetItem* item = topLevelItem(row)) item->setData(0, Qt::UserRole, QVariant::fromValue(tag));
}

void Listbox::LayoutColumns(int width) {
  const int columns = columnCount();
  if (columns == 0 || width <= 0) return;
  const QStringList entries = columnWidths_.split(u',');
  QList<int> fixed(columns, -1);
  QList<double> shares(columns, 0.0);
  int used = 0;
  double totalShares = 0;
  for (int column = 0; column < columns; ++column) {
    const QString entry = column < entries.size() ? entries.at(column).trimmed() : QStringLiteral("*");
    if (entry.endsWith(u'%')) {
      fixed[column] = static_cast<int>(std::lround(width * entry.chopped(1).toDouble() / 100.0));
    } else if (entry.endsWith(u'*')) {
      bool ok = false;
      const double weight = entry.size() == 1 ? 1.0 : entry.chopped(1).toDouble(&ok);
      shares[column] = entry.size() == 1 || ok ? weight : 1.0;
    } else {
      bool ok = false;
      const int pixels = entry.toInt(&ok);
      if (ok) fixed[column] = pixels; else shares[column] = 1.0;
    }
    if (fixed[column] >= 0) used += fixed[column]; else totalShares += shares[column];
  }
  // What is left is shared out; the last shared column takes the rounding rest, so the
  // columns fill the list exactly.
  int left = std::max(0, width - used);
  int lastShared = -1;
  for (int column = 0; column < columns; ++column)
    if (fixed[column] < 0) lastShared = column;
  const int toShare = left;
  for (int column = 0; column < columns; ++column) {
    int size = fixed[column];
    if (size < 0) {
      size = column == lastShared ? left : static_cast<int>(toShare * shares[column] / totalShares);
      left -= size;
    }
    setColumnWidth(column, size);
  }
}

bool Listbox::viewportEvent(QEvent* event) {
  // The viewport narrows when the vertical scroll bar comes: the columns follow it.
  if (event->type() == QEvent::Resize) LayoutColumns(viewport()->width());
  return QTreeWidget::viewportEvent(event);
}

}  // namespace velmar
