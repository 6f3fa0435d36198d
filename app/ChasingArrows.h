#pragma once
// A small busy indicator: two arrows chasing each other round a circle. It animates only
// while it is visible on screen.
#include <QTimer>
#include <QWidget>

namespace velmar {

class ChasingArrows : public QWidget {
public:
  explicit ChasingArrows(QWidget* parent);

  QSize sizeHint() const override { return {16, 16}; }
  // The angle of the arrows in degrees; advances with each frame.
  int Angle() const { return angle_; }
  bool Animating() const { return timer_.isActive(); }

protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

private:
  QTimer timer_;
  int angle_ = 0;
};

}  // namespace velmar
