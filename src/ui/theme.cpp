#include "ui/theme.h"

#include <QApplication>
#include <QColor>
#include <QPalette>
#include <QStyleFactory>

void applyTheme(QApplication& app)
{
    app.setStyle(QStyleFactory::create("Fusion"));
    const QColor window(60, 60, 60), base(30, 30, 30), dim(127, 127, 127), accent(42, 130, 218);
    QPalette p;
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, Qt::white);
    p.setColor(QPalette::Disabled, QPalette::WindowText, dim);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, Qt::white);
    p.setColor(QPalette::ToolTipText, Qt::black);
    p.setColor(QPalette::Text, Qt::white);
    p.setColor(QPalette::Disabled, QPalette::Text, dim);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, Qt::white);
    p.setColor(QPalette::Disabled, QPalette::ButtonText, dim);
    p.setColor(QPalette::BrightText, Qt::red);
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    app.setPalette(p);
    app.setStyleSheet(
        "QToolTip { color: #333333; background-color: #eeeeee; border: 1px solid white; }"
        "QMenu::item:disabled { color: #222222; background-color: #575757; }"
        "QDockWidget { background: rgb(36,38,41);"
        " titlebar-close-icon: url(icons/close-cross-in-circular-outlined-interface-button.png);"
        " titlebar-normal-icon: url(icons/browser-window-square-outline.png); }"
        "QDockWidget::close-button, QDockWidget::float-button { border: none; background: transparent;"
        " icon-size: 14px; padding: 1px; }"
        "QSlider::groove:horizontal { height: 20px; margin: 2px 0; }");
}
