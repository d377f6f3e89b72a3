#pragma once
#include <cstdint>

// One link of an owning, intrusive, doubly linked list.
class Chain {
 public:
  Chain() = default;
  virtual ~Chain() = default;
  Chain(Chain const&) = delete;
  Chain& operator=(Chain const&) = delete;
  Chain* GetNext() const { return _next; }
  Chain* GetPrevious() const { return _prev; }

 private:
  friend class Chains;
  Chain* _prev = nullptr;
  Chain* _next = nullptr;
};

// The list: owns its elements and deletes them.
class Chains {
 public:
  Chains() = default;
  virtual ~Chains();
  Chains(Chains const&) = delete;
  Chains& operator=(Chains const&) = delete;

  Chain* AddChain(Chain* element);  // appends; returns the element
  void DeleteChain(Chain* element);  // unlinks and deletes
  Chain* UnlinkChain(Chain* element);  // unlinks without deleting; the caller owns it
  void DeleteAllChain();
  void Clear() { DeleteAllChain(); }
  Chain* GetChain(uint64_t index) const;
  Chain* GetFirst() const { return _first; }
  Chain* GetLast() const { return _last; }
  uint64_t GetCount() const { return _count; }

 private:
  Chain* _first = nullptr;
  Chain* _last = nullptr;
  uint64_t _count = 0;
};
