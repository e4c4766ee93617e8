#pragma once

#include <QLabel>
#include <QString>
#include <QVBoxLayout>
#include <QWidget>

namespace holdenmere::desktop {

// The title and one-line explanation at the top of every page.
inline QWidget* pageHeader(const QString& title, const QString& subtitle, QWidget* parent) {
    auto* header = new QWidget(parent);
    auto* layout = new QVBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 6);
    layout->setSpacing(2);
    auto* titleLabel = new QLabel(title, header);
    QFont font = titleLabel->font();
    font.setPointSizeF(font.pointSizeF() * 1.45);
    font.setBold(true);
    titleLabel->setFont(font);
    auto* subtitleLabel = new QLabel(subtitle, header);
    subtitleLabel->setWordWrap(true);
    QPalette palette = subtitleLabel->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    subtitleLabel->setPalette(palette);
    layout->addWidget(titleLabel);
    layout->addWidget(subtitleLabel);
    return header;
}

// A wrapping line in the placeholder colour: an explanation or a side note.
inline QLabel* greyLabel(const QString& content, QWidget* parent) {
    auto* label = new QLabel(content, parent);
    label->setWordWrap(true);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    label->setPalette(palette);
    return label;
}

// A rounded, tinted note: a warning above a list, or a problem to act on.
inline QLabel* noteLabel(QWidget* parent, const QColor& tint) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setContentsMargins(10, 8, 10, 8);
    label->setStyleSheet(QStringLiteral("QLabel { background: %1; border: 1px solid %2; border-radius: 6px; }")
                             .arg(tint.lighter(185).name(), tint.lighter(130).name()));
    return label;
}

}  // namespace holdenmere::desktop
