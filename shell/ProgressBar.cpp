#include "shell/ProgressBar.h"

#include "shell/ShellOutput.h"

#include <QLocale>

#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace velmar {

namespace {

constexpr qint64 kPaintIntervalMs = 33;

QString Size(qint64 bytes) { return QLocale::c().formattedDataSize(bytes, 1); }

QString Duration(qint64 seconds) {
  if (seconds >= 3600) return QStringLiteral("%1:%2:%3").arg(seconds / 3600).arg(seconds / 60 % 60, 2, 10, QLatin1Char('0')).arg(seconds % 60, 2, 10, QLatin1Char('0'));
  return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

void Put(const QString& text) {
  const QByteArray bytes = text.toUtf8();
  std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
}

}  // namespace

ProgressBar::ProgressBar() : columns_(80) {
  winsize size {};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20) columns_ = size.ws_col;
  ShellOutput::SetProgressDisplay([this](qint64 bytes) { Update(bytes); });
}

ProgressBar::~ProgressBar() {
  ShellOutput::SetProgressDisplay({});
  ShellOutput::Release(this);
  ShellOutput::Flush();
}

void ProgressBar::Update(qint64 fileBytes) {
  if (!ShellOutput::Kept()) {
    // A new transfer (or the first): the line takes the foot of the terminal.
    ShellOutput::Keep(this, false);
    started_.start();
    painted_.start();
  } else if (ShellOutput::Kept() != this) {
    return;  // a prompt is being typed there
  }
  if (fileBytes < current_) finished_ += current_;
  current_ = fileBytes;
  if (painted_.elapsed() >= kPaintIntervalMs) {
    painted_.start();
    ShellOutput::Repaint();
  }
}

QString ProgressBar::Text(qint64 bytes, qint64 total, double seconds, int columns) {
  const double rate = seconds > 0 ? bytes / seconds : 0;
  QString text = Size(bytes);
  QString tail = QStringLiteral("  %1/s").arg(Size(static_cast<qint64>(rate)));
  if (total > 0) {
    const qint64 shown = std::min(bytes, total);
    text += QStringLiteral(" of %1 %2%").arg(Size(total)).arg(shown * 100 / total, 3);
    if (rate > 0) tail += QStringLiteral("  %1 left").arg(Duration(static_cast<qint64>((total - shown) / rate)));
    const int width = columns - 1 - static_cast<int>(text.size() + tail.size()) - 4;
    if (width >= 10) {
      const int filled = static_cast<int>(width * shown / total);
      text += QStringLiteral("  [") + QString(filled, u'#') + QString(width - filled, u'.') + u']';
    }
  }
  return (text + tail).left(std::max(columns - 1, 1));
}

void ProgressBar::Clear() { Put(QStringLiteral("\r\x1b[K")); }

void ProgressBar::Draw() {
  Put(Text(finished_ + current_, total_, started_.elapsed() / 1000.0, columns_));
  std::fflush(stdout);
}

void ProgressBar::Released() {
  finished_ = 0;
  current_ = 0;
}

}  // namespace velmar
