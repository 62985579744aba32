// The storage pane's rows as a tree.
#include "ui/STORAGELIST.h"

#include <algorithm>

size_t STORAGELIST::position(const BARN::NODE &node, long long parent) const {
    const ROWS &siblings = children(parent);
    STORAGEITEM probe(node, parent);
    return size_t(std::upper_bound(siblings.begin(), siblings.end(), &probe,
                                   [](const STORAGEITEM *a, const STORAGEITEM *b) {
                                       return STORAGEITEM::before(*a, *b);
                                   }) -
                  siblings.begin());
}

size_t STORAGELIST::positionAfter(long long number, const BARN::NODE &node) const {
    const STORAGEITEM *item = find(number);
    if (item == nullptr)
        return 0;
    STORAGEITEM probe(node, item->parent());
    size_t at = 0;
    for (const STORAGEITEM *sibling : children(item->parent()))
        if (sibling != item && !STORAGEITEM::before(probe, *sibling))
            ++at;
    return at;
}

void STORAGELIST::update(long long number, const BARN::NODE &node) {
    STORAGEITEM *item = find(number);
    if (item == nullptr)
        return;
    size_t at = positionAfter(number, node);
    ROWS &siblings = fChildren[item->parent()];
    siblings.erase(std::find(siblings.begin(), siblings.end(), item));
    item->update(&node, false);
    siblings.insert(siblings.begin() + long(at), item);
}

STORAGEITEM *STORAGELIST::add(const BARN::NODE &node, long long parent) {
    size_t at = position(node, parent);
    auto item = std::make_unique<STORAGEITEM>(node, parent);
    STORAGEITEM *row = item.get();
    fItems[node.number] = std::move(item);
    ROWS &siblings = fChildren[parent];
    siblings.insert(siblings.begin() + long(at), row);
    return row;
}

void STORAGELIST::remove(long long number) {
    auto found = fItems.find(number);
    if (found == fItems.end())
        return;
    ROWS below = children(number);
    for (STORAGEITEM *child : below)
        remove(child->node());
    fChildren.erase(number);
    ROWS &siblings = fChildren[found->second->parent()];
    siblings.erase(std::remove(siblings.begin(), siblings.end(), found->second.get()),
                   siblings.end());
    fItems.erase(found);
}

void STORAGELIST::clear() {
    fChildren.clear();
    fItems.clear();
}

STORAGEITEM *STORAGELIST::find(long long number) const {
    auto found = fItems.find(number);
    return found != fItems.end() ? found->second.get() : nullptr;
}

const STORAGELIST::ROWS &STORAGELIST::children(long long parent) const {
    static const ROWS kNone;
    auto found = fChildren.find(parent);
    return found != fChildren.end() ? found->second : kNone;
}

int STORAGELIST::row(const STORAGEITEM *item) const {
    const ROWS &siblings = children(item->parent());
    auto found = std::find(siblings.begin(), siblings.end(), item);
    return found != siblings.end() ? int(found - siblings.begin()) : -1;
}

STORAGEITEM *STORAGELIST::next(const STORAGEITEM *current, bool forward,
                               bool (*expanded)(const STORAGEITEM *, void *), void *data) const {
    // The rows as listed, then a step along them.
    std::vector<STORAGEITEM *> listed;
    auto walk = [&](auto &self, long long parent) -> void {
        for (STORAGEITEM *item : children(parent)) {
            listed.push_back(item);
            if (expanded(item, data))
                self(self, item->node());
        }
    };
    walk(walk, BARN::kNodeNone);
    if (listed.empty())
        return nullptr;
    auto at = std::find(listed.begin(), listed.end(), current);
    if (at == listed.end())
        return forward ? listed.front() : listed.back();
    if (forward)
        return at + 1 != listed.end() ? *(at + 1) : nullptr;
    return at != listed.begin() ? *(at - 1) : nullptr;
}
