/**
 * @file drm_list.h
 * @brief Circular doubly linked lists whose links lie at the start of the element. The caller guards them.
 */
#ifndef DRM_LIST_H
#define DRM_LIST_H

#include <stdint.h>

/** A head, or the links of an element. An empty list's head points to itself. 16 bytes. */
typedef struct DrmListHead {
    struct DrmListHead *next;
    struct DrmListHead *prev;
} DrmListHead;

/** What the links of an element hold while it is in no list: a use of them faults. */
#define DRM_LIST_POISON_NEXT ((DrmListHead *)0x100100)
#define DRM_LIST_POISON_PREV ((DrmListHead *)0x200200)

#ifdef __cplusplus

inline void DrmListInit(DrmListHead *head) noexcept
{
    head->next = head;
    head->prev = head;
}

inline bool DrmListEmpty(const DrmListHead *head) noexcept
{
    return head->next == head;
}

inline void DrmListPoison(DrmListHead *links) noexcept
{
    links->next = reinterpret_cast<DrmListHead *>(0x100100);
    links->prev = reinterpret_cast<DrmListHead *>(0x200200);
}

inline void DrmListInsertBetween(DrmListHead *links, DrmListHead *prev, DrmListHead *next) noexcept
{
    links->next = next;
    links->prev = prev;
    next->prev = links;
    prev->next = links;
}

inline void DrmListAddTail(DrmListHead *head, DrmListHead *links) noexcept
{
    DrmListInsertBetween(links, head->prev, head);
}

inline void DrmListAddHead(DrmListHead *head, DrmListHead *links) noexcept
{
    DrmListInsertBetween(links, head, head->next);
}

/** Takes an element out of its list and poisons its links. */
inline void DrmListUnlink(DrmListHead *links) noexcept
{
    links->prev->next = links->next;
    links->next->prev = links->prev;
    DrmListPoison(links);
}

/** Moves all elements of @p from to the empty list @p to; @p from is empty afterwards. */
inline void DrmListMoveAll(DrmListHead *from, DrmListHead *to) noexcept
{
    DrmListInit(to);
    if (DrmListEmpty(from)) {
        return;
    }
    to->next = from->next;
    to->prev = from->prev;
    to->next->prev = to;
    to->prev->next = to;
    DrmListInit(from);
}

/**
 * The elements of a list in order, for a range-based for; @p Element is a standard-layout record whose first member,
 * `links`, is a DrmListHead. The present element may be unlinked in the body.
 */
template <typename Element>
class DrmListView {
public:
    explicit DrmListView(DrmListHead *head) noexcept : head_(head) {}

    class Iterator {
    public:
        explicit Iterator(DrmListHead *at) noexcept : at_(at), next_(at->next) {}
        Element *operator*() const noexcept { return reinterpret_cast<Element *>(at_); }
        Iterator &operator++() noexcept
        {
            at_ = next_;
            next_ = at_->next;
            return *this;
        }
        bool operator!=(const Iterator &other) const noexcept { return at_ != other.at_; }

    private:
        DrmListHead *at_;
        DrmListHead *next_;
    };

    [[nodiscard]] Iterator begin() const noexcept { return Iterator(head_->next); }
    [[nodiscard]] Iterator end() const noexcept { return Iterator(head_); }

private:
    DrmListHead *head_;
};

/** The first element for which @p matches holds, or null. */
template <typename Element, typename Predicate>
[[nodiscard]] Element *DrmListFind(DrmListHead *head, Predicate matches) noexcept
{
    for (Element *element : DrmListView<Element>(head)) {
        if (matches(*element)) {
            return element;
        }
    }
    return nullptr;
}

#endif

#endif
