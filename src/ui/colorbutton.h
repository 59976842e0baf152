// ColorButton: a push button that shows a colour as its background and lets the user
// pick another one with the colour chooser.
#pragma once

#include <QColor>
#include <QPushButton>

class ColorButton : public QPushButton {
    Q_OBJECT
public:
    explicit ColorButton(const QColor& initial = QColor(Qt::white), QWidget* parent = nullptr);

    QColor color;

    // Stores the colour and shows it through the style sheet.
    void setColor(const QColor& value);

signals:
    void colorChanged(const QColor& value);

public slots:
    // Opens the colour chooser at the current colour; a valid choice is taken over.
    void pickColor();
};
