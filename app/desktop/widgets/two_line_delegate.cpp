#include "app/desktop/widgets/two_line_delegate.h"

#include <QApplication>
#include <QPainter>

namespace holdenmere::desktop {
namespace {

constexpr int kIconSize = 32;
constexpr int kPadding = 6;

// A section header: small bold capitals, greyed.
void paintHeader(QPainter* painter, const QStyleOptionViewItem& opt, const QModelIndex& index) {
    QFont font = opt.font;
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 0.9);
    painter->setFont(font);
    painter->setPen(opt.palette.color(QPalette::Disabled, QPalette::Text));
    painter->drawText(opt.rect.adjusted(kPadding, 0, -kPadding, 0), Qt::AlignLeft | Qt::AlignBottom,
                      index.data(Qt::DisplayRole).toString().toUpper());
}

// The check box where the style expects clicks on it, so that ticking works
// as in any list; where it was drawn.
QRect paintCheckBox(QPainter* painter, const QStyleOptionViewItem& opt, QStyle* style) {
    QStyleOptionViewItem check = opt;
    check.rect = style->subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &opt, opt.widget);
    check.state = check.state & ~QStyle::State_HasFocus;
    check.state |= opt.checkState == Qt::Checked ? QStyle::State_On : QStyle::State_Off;
    style->drawPrimitive(QStyle::PE_IndicatorItemViewItemCheck, &check, painter, opt.widget);
    return check.rect;
}

// The name, and the subtitle below it (red when it warns), centred together
// in `textRect` and elided to fit.
void paintLines(QPainter* painter, const QStyleOptionViewItem& opt, const QModelIndex& index, const QString& text,
                const QRect& textRect) {
    const bool selected = opt.state & QStyle::State_Selected;
    const bool enabled = opt.state & QStyle::State_Enabled;
    QFont nameFont = opt.font;
    nameFont.setWeight(QFont::DemiBold);
    const QFontMetrics nameMetrics(nameFont);
    QFont subtitleFont = opt.font;
    subtitleFont.setPointSizeF(subtitleFont.pointSizeF() * 0.88);
    const QFontMetrics subtitleMetrics(subtitleFont);

    const QString subtitle = index.data(TwoLineDelegate::kSubtitleRole).toString();
    const int total = nameMetrics.height() + (subtitle.isEmpty() ? 0 : subtitleMetrics.height());
    int y = textRect.top() + (textRect.height() - total) / 2;

    const QPalette::ColorGroup group = enabled ? QPalette::Normal : QPalette::Disabled;
    painter->setFont(nameFont);
    painter->setPen(opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text));
    painter->drawText(QRect(textRect.left(), y, textRect.width(), nameMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                      nameMetrics.elidedText(text, Qt::ElideRight, textRect.width()));
    y += nameMetrics.height();
    if (!subtitle.isEmpty()) {
        painter->setFont(subtitleFont);
        QColor colour = opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
        if (index.data(TwoLineDelegate::kWarningRole).toBool() && !selected) colour = QColor(190, 40, 30);
        painter->setPen(colour);
        painter->drawText(QRect(textRect.left(), y, textRect.width(), subtitleMetrics.height()),
                          Qt::AlignLeft | Qt::AlignVCenter,
                          subtitleMetrics.elidedText(subtitle, Qt::ElideMiddle, textRect.width()));
    }
}

}  // namespace

void TwoLineDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    painter->save();
    if (index.data(kHeaderRole).toBool()) {
        paintHeader(painter, opt, index);
        painter->restore();
        return;
    }
    // Background and selection as the style draws them, without text or icon.
    const QString text = opt.text;
    opt.text.clear();
    opt.icon = QIcon();
    QStyle* style = opt.widget ? opt.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, opt.widget);

    const bool enabled = opt.state & QStyle::State_Enabled;
    QRect rect = opt.rect.adjusted(kPadding, kPadding / 2, -kPadding, -kPadding / 2);
    if (opt.features & QStyleOptionViewItem::HasCheckIndicator) {
        rect.setLeft(paintCheckBox(painter, opt, style).right() + kPadding);
    }
    const QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
    const QRect iconRect(rect.left(), rect.top() + (rect.height() - kIconSize) / 2, kIconSize, kIconSize);
    icon.paint(painter, iconRect, Qt::AlignCenter, enabled ? QIcon::Normal : QIcon::Disabled);

    paintLines(painter, opt, index, text, rect.adjusted(kIconSize + kPadding * 2, 0, 0, 0));
    painter->restore();
}

QSize TwoLineDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    if (index.data(kHeaderRole).toBool()) return {option.rect.width(), option.fontMetrics.height() + 14};
    return {option.rect.width(), kIconSize + kPadding * 2 + 4};
}

}  // namespace holdenmere::desktop
