// The storage pane's rows as a tree: each node's row under its parent's, in sibling order.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include "ui/STORAGEITEM.h"

// The rows the pane shows, apart from how they are drawn. A row may arrive before its parent
// (the background load and the level walk run side by side); it is kept and shows as soon as
// the parent's row is there. The view reads the rows in place, so positions are told before
// a change: an adapter announces the insertion at position(), then calls add().
class STORAGELIST {
public:
    using ROWS = std::vector<STORAGEITEM *>;

    // Where a row for node would go among the children of parent.
    size_t position(const BARN::NODE &node, long long parent) const;
    // Adds the row; an existing row of the node must be removed first.
    STORAGEITEM *add(const BARN::NODE &node, long long parent);
    // Where the row of number would stand among its siblings once its node is changed to
    // node (its own place not counted), and the change itself, moving it there.
    size_t positionAfter(long long number, const BARN::NODE &node) const;
    void update(long long number, const BARN::NODE &node);
    // Removes the row and every row below it.
    void remove(long long number);
    void clear();

    STORAGEITEM *find(long long number) const;
    // The rows below parent (kNodeNone: the top level), in sibling order.
    const ROWS &children(long long parent) const;
    // A row's place among its siblings, or -1.
    int row(const STORAGEITEM *item) const;
    size_t size() const { return fItems.size(); }

    // The row after (or before) current in the order the rows are listed, descending into the
    // children of rows for which expanded says so; null at either end. A null current starts
    // at the first (or last) row.
    STORAGEITEM *next(const STORAGEITEM *current, bool forward,
                      bool (*expanded)(const STORAGEITEM *item, void *data), void *data) const;

private:
    std::map<long long, std::unique_ptr<STORAGEITEM>> fItems;
    std::map<long long, ROWS> fChildren;
};
