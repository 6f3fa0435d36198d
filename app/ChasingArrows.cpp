#include "app/ChasingArrows.h"

#include <QPainter>
#include <QPainterPath>
#include <QtMath>

namespace velmar {

namespace {
constexpr int kFrameMs = 60;
constexpr int kStepDegrees = 30;
}  // namespace

ChasingArrows::ChasingArrows(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_TransparentForMouseEvents);
  setFocusPolicy(Qt::NoFocus);
  timer_.setInterval(kFrameMs);
  QObject::connect(&timer_, &QTimer::timeout, this, [this] {
    angle_ = (angle_ + kStepDegrees) % 360;
    update();
  });
}

void ChasingArrows::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const qreal side = std::min(width(), height());
  const qreal pen = std::max<qreal>(1.5, side / 8.0);
  const qreal radius = side / 2.0 - pen;
  const QPointF center(width() / 2.0, height() / 2.0);
  const QColor color = palette().color(QPalette::WindowText);
  painter.setPen(QPen(color, pen, Qt::SolidLine, Qt::FlatCap));
  const QRectF circle(center.x() - radius, center.y() - radius, 2 * radius, 2 * radius);
  for (int arrow = 0; arrow < 2; ++arrow) {
    // Each arrow is an arc of 120 degrees with a head at its leading end (clockwise).
    const qreal start = -(angle_ + arrow * 180);
    painter.setBrush(Qt::NoBrush);
    painter.drawArc(circle, qRound(start * 16), -120 * 16);
    const qreal head = qDegreesToRadians(-(start - 120));
    const QPointF tip(center.x() + radius * std::cos(head), center.y() + radius * std::sin(head));
    // The head points along the circle, clockwise on screen.
    const QPointF along(-std::sin(head), std::cos(head));
    const QPointF outward(std::cos(head), std::sin(head));
    const qreal size = pen * 1.6;
    QPainterPath path;
    path.moveTo(tip + along * size);
    path.lineTo(tip + outward * size);
    path.lineTo(tip - outward * size);
    path.closeSubpath();
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawPath(path);
    painter.setPen(QPen(color, pen, Qt::SolidLine, Qt::FlatCap));
  }
}

void ChasingArrows::showEvent(QShowEvent* event) {
  timer_.start();
  QWidget::showEvent(event);
}

void ChasingArrows::hideEvent(QHideEvent* event) {
  timer_.stop();
  QWidget::hideEvent(event);
}

}  // namespace velmar
