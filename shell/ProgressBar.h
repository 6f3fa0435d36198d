#pragma once
// The progress of transfers as one line at the foot of a terminal, in place of `progress`
// lines: bytes so far, rate, and with a known total the share, a bar and the time left. The
// byte counts it is given are those of one file, from 0 up; a count below the last one starts
// the next file. Painted at most about 30 times a second; gone at the transfer's end report.
#include "shell/TerminalLine.h"

#include <QElapsedTimer>
#include <QString>

namespace velmar {

class ProgressBar : public TerminalLine {
public:
  // Shows itself through ShellOutput from now on, as wide as the terminal of stdout.
  ProgressBar();
  ~ProgressBar() override;

  // The bytes of all the transfers to come, when known (-1: unknown).
  void SetTotal(qint64 total) { total_ = total; }
  void Update(qint64 fileBytes);

  // The line for `bytes` done of `total` (-1: unknown) after `seconds`, at most `columns` wide.
  static QString Text(qint64 bytes, qint64 total, double seconds, int columns);

  void Clear() override;
  void Draw() override;
  void Released() override;
  bool EndsAtReport() const override { return true; }

private:
  int columns_;
  qint64 total_ = -1;
  qint64 finished_ = 0;  // bytes of the files before the current one
  qint64 current_ = 0;
  QElapsedTimer started_;
  QElapsedTimer painted_;
};

}  // namespace velmar
