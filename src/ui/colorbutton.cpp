#include "ui/colorbutton.h"

#include <QColorDialog>

ColorButton::ColorButton(const QColor& initial, QWidget* parent) : QPushButton(parent)
{
    setMinimumWidth(40);
    setColor(initial);
    connect(this, &QPushButton::clicked, this, &ColorButton::pickColor);
}

void ColorButton::setColor(const QColor& value)
{
    const bool changed = value != color;
    color = value;
    setStyleSheet("background-color: " + color.name());
    if (changed) emit colorChanged(color);
}

void ColorButton::pickColor()
{
    const QColor picked = QColorDialog::getColor(color, this, "Select Color");
    if (picked.isValid()) setColor(picked);
}
