// Test access to the follower's internals: which category list a key lands
// in, the order of the time-out list, the monitor thread, and a check that the
// lists and the indexes beside them agree.
#ifndef OSTREL_TESTS_FOLLOWER_PEER_H
#define OSTREL_TESTS_FOLLOWER_PEER_H

#include <pthread.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "RequestFollower.h"

namespace Ostrel {

class RequestFollowerTestPeer {
 public:
  using Item = RequestFollower::RequestFollowerItem;
  using TreeLink = Ostrel::TreeLink;
  using ItemTree = Ostrel::ItemTree;
  using ItemLinks = Ostrel::ItemLinks;

  static void lock() { pthread_mutex_lock(&RequestFollower::s_pSingMutex); }
  static void unlock() { pthread_mutex_unlock(&RequestFollower::s_pSingMutex); }

  // The name of the category list that (pid, tableId) goes to, or "" for none.
  static std::string category(short pid, short tableId) {
    RequestFollower::getInstance();
    lock();
    RequestFollower* f = RequestFollower::s_pInstance.load();
    RequestFollower::CategoryList* list = f->getSpecificList(pid, tableId, 0);
    std::string name;
    for (const auto& [candidate, label] : lists(f)) {
      if (candidate == list)
        name = label;
    }
    unlock();
    return name;
  }

  // Request ids in time-out list order.
  static std::vector<unsigned int> timeOutOrder() {
    std::vector<unsigned int> ids;
    lock();
    if (RequestFollower* f = RequestFollower::s_pInstance.load()) {
      for (Item* item : f->m_lstTimeOut)
        ids.push_back(item->getRequestId());
    }
    unlock();
    return ids;
  }

  static size_t pendingCount() {
    lock();
    RequestFollower* f = RequestFollower::s_pInstance.load();
    size_t n = f ? f->m_lstTimeOut.size() : 0;
    unlock();
    return n;
  }

  static pthread_t monitorHandle() {
    lock();
    RequestFollower* f = RequestFollower::s_pInstance.load();
    pthread_t t = f ? f->m_thread : pthread_t();
    unlock();
    return t;
  }

  // Runs the monitor's thread body on a thread of the caller's.
  static void* monitorBody(void* arg) { return RequestFollower::monitorThread(arg); }

  // "" when the time-out list, the id index, the category lists and the side
  // indexes agree with each other; otherwise what is wrong.
  static std::string inconsistency() {
    lock();
    std::string problem;
    if (RequestFollower* f = RequestFollower::s_pInstance.load())
      problem = check(f);
    unlock();
    return problem;
  }

 private:
  static std::vector<std::pair<RequestFollower::CategoryList*, std::string>> lists(
      RequestFollower* f) {
    return {{&f->m_lstPat, "Pat"}, {&f->m_lstCat, "Cat"},     {&f->m_lstNit, "Nit"},
            {&f->m_lstSdt, "Sdt"}, {&f->m_lstEitPf, "EitPf"}, {&f->m_lstEitSchedule, "EitSchedule"},
            {&f->m_lstTot, "Tot"}, {&f->m_lstPid26, "Pid26"}, {&f->m_lstPmt, "Pmt"}};
  }

  static std::string check(RequestFollower* f) {
    auto& timeOut = f->m_lstTimeOut;
    std::set<Item*> pending(timeOut.begin(), timeOut.end());
    if (pending.size() != timeOut.size())
      return "an item twice in the time-out list";
    Item::TimevalComparator earlier;
    for (auto it = timeOut.begin(); it != timeOut.end() && std::next(it) != timeOut.end(); ++it) {
      if (earlier(*std::next(it), *it))
        return "time-out list out of deadline order";
    }
    size_t inCategories = 0;
    for (const auto& [list, label] : lists(f)) {
      for (Item* item : *list) {
        ++inCategories;
        if (!pending.count(item))
          return "category " + label + " holds an item not pending";
        if (f->getSpecificList(item->getPid(), item->getTableId(), item->getTableIdExt()) != list)
          return "item in the wrong category list " + label;
      }
    }
    if (inCategories != pending.size())
      return "category lists and time-out list differ in size";
    int previousId = 0;
    size_t ids = 0;
    for (TreeLink* link = f->m_mapRequestId.first(); link; link = ItemTree::next(link), ++ids) {
      Item* item = RequestFollower::itemAt(link, ItemLinks::kIdTree);
      const int id = static_cast<int>(item->getRequestId());
      if (!pending.count(item))
        return "id index points to an item not pending";
      if (ids > 0 && id <= previousId)
        return "id index out of order or with an id twice";
      previousId = id;
    }
    if (ids != f->m_mapRequestId.size())
      return "id index miscounts its entries";
    if (f->m_treeDeadline.size() != pending.size() || f->m_treeKey.size() != pending.size())
      return "trees differ in size from the time-out list";
    auto listIt = timeOut.begin();
    for (TreeLink* link = f->m_treeDeadline.first(); link; link = ItemTree::next(link), ++listIt) {
      if (RequestFollower::itemAt(link, ItemLinks::kDeadlineTree) != *listIt)
        return "deadline tree out of step with the time-out list";
    }
    Item* previous = nullptr;
    for (TreeLink* link = f->m_treeKey.first(); link; link = ItemTree::next(link)) {
      Item* item = RequestFollower::itemAt(link, ItemLinks::kKeyTree);
      if (!pending.count(item))
        return "key tree holds an item not pending";
      if (previous) {
        const int order = RequestFollower::compareKey(previous, item->getTunerId(), item->getPid(),
                                                      item->getTableId(), item->getTableIdExt());
        if (order > 0 || (order == 0 && earlier(item, previous)))
          return "key tree out of order";
      }
      previous = item;
    }
    return "";
  }
};

}  // namespace Ostrel

#endif
