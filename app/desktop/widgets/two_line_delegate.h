#pragma once

#include <QStyledItemDelegate>

namespace holdenmere::desktop {

// List rows with an icon, the name, and a smaller grey second line
// (kSubtitleRole); rows with kWarningRole set draw that line in red.
class TwoLineDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    static constexpr int kSubtitleRole = Qt::UserRole + 10;
    static constexpr int kWarningRole = Qt::UserRole + 11;
    static constexpr int kHeaderRole = Qt::UserRole + 12;  // a section title, not an item

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

}  // namespace holdenmere::desktop
