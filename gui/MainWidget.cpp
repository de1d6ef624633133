// SPDX-License-Identifier: Apache-2.0
#include "gui/MainWidget.h"

#include "app/core/ApplicationInterface.h"
#include "gui/PreviewCapture.h"
#include "gui/RenderFrame.h"

#include <QFrame>
#include <QGraphicsDropShadowEffect>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLoggingCategory>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

namespace {

Q_LOGGING_CATEGORY(lcGui, "lumivora.gui")

constexpr int kPreviewWidth = 320;
constexpr int kPreviewHeight = 180;
constexpr int kPanelMargin = 16; // around the panel, for its shadow
constexpr QMargins kPanelMargins{kPanelMargin, kPanelMargin, kPanelMargin, kPanelMargin};
constexpr int kPanelRadius = 12;
constexpr int kPanelPadding = 20; // with the margin 72 pixels wider than the preview
constexpr int kScreenGap = 4;
constexpr int kStatusPeriodMs = 1000;

struct Palette
{
    QString panel;
    QString border;
    QString text;
    QString quiet; // less important text
    QString button;
    QString hover;
};

Palette paletteFor(bool dark)
{
    return dark ? Palette{QStringLiteral("#23262d"), QStringLiteral("#3a3f4a"),
                          QStringLiteral("#f2f4f8"), QStringLiteral("#a8b0be"),
                          QStringLiteral("#323743"), QStringLiteral("#3f4655")}
                : Palette{QStringLiteral("#fbfcfe"), QStringLiteral("#d5dae3"),
                          QStringLiteral("#1c2029"), QStringLiteral("#5a6373"),
                          QStringLiteral("#eceff5"), QStringLiteral("#dfe4ee")};
}

} // namespace

MainWidget::MainWidget(lumivora::ApplicationInterface &application, QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      _application(application)
{
    setObjectName(QStringLiteral("MainWidget"));
    setAttribute(Qt::WA_TranslucentBackground);
    setStyleSheet(QStringLiteral("#MainWidget { background: transparent; border: none; }"));
    setFixedWidth(kPreviewWidth + 2 * (kPanelMargin + kPanelPadding));
    buildPanel();

    if (CameraGrabber *grabber = _application.cameraGrabber()) {
        _capture = new PreviewCapture(*grabber, lumivora::systemClock(), this);
        connect(_capture, &PreviewCapture::onFrame, _preview, &RenderFrame::setImage);
    }
    auto *statusTimer = new QTimer(this);
    connect(statusTimer, &QTimer::timeout, this, &MainWidget::updateStatus);
    statusTimer->start(kStatusPeriodMs);
    updateStatus();
}

MainWidget::~MainWidget()
{
    qCDebug(lcGui) << "MainWidget DCTOR!";
}

void MainWidget::buildPanel()
{
    const Palette colours = paletteFor(_application.isDarkTheme());
    auto *panel = new QFrame(this);
    panel->setObjectName(QStringLiteral("MainFrame"));
    panel->setStyleSheet(
        QStringLiteral("#MainFrame { background: %1; border: 1px solid %2; border-radius: %7px; }"
                       "#title { color: %3; font-size: 15px; font-weight: 600; }"
                       "#status { color: %4; font-size: 13px; }"
                       "QPushButton { color: %3; background: %5; border: 1px solid %2;"
                       " border-radius: 6px; padding: 5px 14px; font-weight: 600; }"
                       "QPushButton:hover, QPushButton:focus { background: %6; }")
            .arg(colours.panel, colours.border, colours.text, colours.quiet, colours.button,
                 colours.hover, QString::number(kPanelRadius)));
    auto *title = new QLabel(QStringLiteral("Lumivora Control"));
    title->setObjectName(QStringLiteral("title"));
    _preview = new RenderFrame;
    _preview->setFixedSize(kPreviewWidth, kPreviewHeight);
    _preview->setText(tr("Connecting to the camera..."));
    _status = new QLabel;
    _status->setObjectName(QStringLiteral("status"));
    _status->setWordWrap(true);
    _quit = new QPushButton(tr("Quit"));
    connect(_quit, &QPushButton::clicked, this, [this] { _application.requestShutdown(); });

    auto *footer = new QHBoxLayout;
    footer->addWidget(_status, 1);
    footer->addWidget(_quit);
    auto *column = new QVBoxLayout(panel);
    // The border takes a pixel on either side of the padding.
    column->setContentsMargins(kPanelPadding - 1, 14, kPanelPadding - 1, 14);
    column->setSpacing(12);
    column->addWidget(title);
    column->addWidget(_preview, 0, Qt::AlignHCenter);
    column->addLayout(footer);

    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(kPanelMargins);
    outer->addWidget(panel);
}

/** Rendered once: as the panel's own effect it would be computed anew for each preview frame. */
QPixmap MainWidget::renderShadow() const
{
    QWidget canvas;
    canvas.setAttribute(Qt::WA_TranslucentBackground);
    canvas.setFixedSize(size());
    auto *shape = new QFrame(&canvas);
    // A pixel smaller than the panel, whose smooth corners would let black through otherwise.
    shape->setGeometry(rect().marginsRemoved(kPanelMargins).adjusted(1, 1, -1, -1));
    shape->setStyleSheet(
        QStringLiteral("background: black; border-radius: %1px;").arg(kPanelRadius));
    auto *shadow = new QGraphicsDropShadowEffect(shape);
    shadow->setBlurRadius(kPanelMargin);
    shadow->setOffset(0, 2);
    shadow->setColor(QColor(0, 0, 0, 90));
    shape->setGraphicsEffect(shadow);
    return canvas.grab();
}

void MainWidget::paintEvent(QPaintEvent * /*event*/)
{
    if (_shadow.deviceIndependentSize().toSize() != size()) {
        _shadow = renderShadow();
    }
    QPainter(this).drawPixmap(0, 0, _shadow);
}

QString MainWidget::statusText() const
{
    return _status->text();
}

void MainWidget::updateStatus()
{
    if (_application.isCameraRunning()) {
        _status->setText(tr("Camera is running"));
    } else if (_application.areClientsConnected()) {
        _status->setText(tr("Waiting for Lumivora Camera"));
        _preview->setImage(QImage());
    } else {
        _status->setText(tr("Camera is off: no program uses it"));
        _preview->setImage(QImage());
    }
}

void MainWidget::showEvent(QShowEvent *event)
{
    adjustSize();
    placeOnScreen();
    if (_capture != nullptr) {
        _capture->setWanted(true);
    }
    QWidget::showEvent(event);
}

void MainWidget::hideEvent(QHideEvent *event)
{
    if (_capture != nullptr) {
        _capture->setWanted(false);
    }
    _preview->setImage(QImage());
    QWidget::hideEvent(event);
}

void MainWidget::placeOnScreen()
{
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect free = screen->availableGeometry().adjusted(0, 0, -kScreenGap, -kScreenGap);
        move(free.right() - width() + 1, free.bottom() - height() + 1);
    }
}
