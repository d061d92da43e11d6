// Renders the viewer's pictures from their SVG drawings at build time, so that
// the program itself needs no SVG support. Each argument pair is an SVG file and
// the PNG to write; a PNG named "<name>_<size>.png" is rendered <size> pixels
// wide (height by the drawing's aspect), any other at the drawing's own size.
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc < 3 || argc % 2 != 1) {
    std::fprintf(stderr, "usage: render_pictures SVG PNG [SVG PNG ...]\n");
    return 2;
  }
  const QRegularExpression sized(QStringLiteral("_(\\d+)\\.png$"));
  for (int i = 1; i + 1 < argc; i += 2) {
    const QString svg = QString::fromLocal8Bit(argv[i]);
    const QString png = QString::fromLocal8Bit(argv[i + 1]);
    QSvgRenderer renderer(svg);
    if (!renderer.isValid()) {
      std::fprintf(stderr, "render_pictures: cannot read %s\n", argv[i]);
      return 1;
    }
    QSize size = renderer.defaultSize();
    const QRegularExpressionMatch match = sized.match(png);
    if (match.hasMatch()) {
      const int width = match.captured(1).toInt();
      size = QSize(width, qRound(width * static_cast<double>(size.height()) / size.width()));
    }
    QImage picture(size, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    painter.end();
    if (!picture.save(png)) {
      std::fprintf(stderr, "render_pictures: cannot write %s\n", argv[i + 1]);
      return 1;
    }
  }
  return 0;
}
