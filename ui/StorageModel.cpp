// The storage pane's rows for Qt's tree view.
#include "ui/StorageModel.h"

#include <QApplication>
#include <QFont>
#include <QStyle>

QModelIndex StorageModel::index(int row, int column, const QModelIndex &parent) const {
    long long above = parent.isValid() ? item(parent)->node() : BARN::kNodeNone;
    const STORAGELIST::ROWS &rows = fList.children(above);
    if (column != 0 || row < 0 || size_t(row) >= rows.size())
        return {};
    return createIndex(row, 0, rows[size_t(row)]);
}

QModelIndex StorageModel::parent(const QModelIndex &child) const {
    const STORAGEITEM *row = item(child);
    if (row == nullptr)
        return {};
    return _indexOf(fList.find(row->parent()));
}

int StorageModel::rowCount(const QModelIndex &parent) const {
    if (parent.column() > 0)
        return 0;
    return int(fList.children(parent.isValid() ? item(parent)->node() : BARN::kNodeNone).size());
}

int StorageModel::columnCount(const QModelIndex &) const {
    return 1;
}

QVariant StorageModel::data(const QModelIndex &index, int role) const {
    const STORAGEITEM *row = item(index);
    if (row == nullptr)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return QString::fromStdString(row->text());
    case Qt::FontRole: {
        QFont font = QApplication::font();
        font.setBold(row->bold());
        return font;
    }
    case Qt::DecorationRole: {
        QStyle *style = QApplication::style();
        switch (row->type()) {
        case NODETYPE::Server:
            return style->standardIcon(QStyle::SP_DriveNetIcon);
        case NODETYPE::Newsgroup:
            return style->standardIcon(QStyle::SP_FileDialogListView);
        case NODETYPE::Folder:
            return style->standardIcon(QStyle::SP_DirIcon);
        }
        return {};
    }
    default:
        return {};
    }
}

STORAGEITEM *StorageModel::item(const QModelIndex &index) const {
    return index.isValid() ? static_cast<STORAGEITEM *>(index.internalPointer()) : nullptr;
}

QModelIndex StorageModel::_indexOf(const STORAGEITEM *row) const {
    if (row == nullptr)
        return {};
    return createIndex(fList.row(row), 0, const_cast<STORAGEITEM *>(row));
}

QModelIndex StorageModel::indexOf(long long number) const {
    return _indexOf(fList.find(number));
}

void StorageModel::sync(long long number) {
    BARN::NODE node;
    const bool exists = barn.nodeRead(&node, number);
    STORAGEITEM *row = fList.find(number);
    if (!exists) {
        if (row == nullptr)
            return;
        QModelIndex above = _indexOf(fList.find(row->parent()));
        int at = fList.row(row);
        beginRemoveRows(above, at, at);
        fList.remove(number);
        endRemoveRows();
        return;
    }
    if (row == nullptr) {
        long long parent = barn.nodeParent(number);
        // A row whose parent has no row yet waits, unseen, until the parent's row comes.
        if (parent != BARN::kNodeNone && fList.find(parent) == nullptr) {
            fList.add(node, parent);
            return;
        }
        QModelIndex above = _indexOf(fList.find(parent));
        int at = int(fList.position(node, parent));
        beginInsertRows(above, at, at);
        fList.add(node, parent);
        endInsertRows();
        return;
    }
    QModelIndex above = _indexOf(fList.find(row->parent()));
    int from = fList.row(row);
    int to = int(fList.positionAfter(number, node));
    if (to != from) {
        beginMoveRows(above, from, from, above, to > from ? to + 1 : to);
        fList.update(number, node);
        endMoveRows();
    } else {
        fList.update(number, node);
    }
    QModelIndex changed = _indexOf(row);
    emit dataChanged(changed, changed);
}

void StorageModel::unreadSet(long long number, unsigned long unread) {
    STORAGEITEM *row = fList.find(number);
    if (row == nullptr || row->unread() == unread)
        return;
    row->setUnread(unread);
    QModelIndex changed = _indexOf(row);
    emit dataChanged(changed, changed);
}
