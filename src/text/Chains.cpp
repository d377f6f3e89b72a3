#include "text/Chains.h"

Chains::~Chains() { DeleteAllChain(); }

Chain* Chains::AddChain(Chain* element) {
  if (!element) throw "No Memory";
  element->_prev = _last;
  element->_next = nullptr;
  if (_last)
    _last->_next = element;
  else
    _first = element;
  _last = element;
  ++_count;
  return element;
}

Chain* Chains::UnlinkChain(Chain* element) {
  if (!element) return nullptr;
  if (element->_prev)
    element->_prev->_next = element->_next;
  else
    _first = element->_next;
  if (element->_next)
    element->_next->_prev = element->_prev;
  else
    _last = element->_prev;
  element->_prev = element->_next = nullptr;
  --_count;
  return element;
}

void Chains::DeleteChain(Chain* element) { delete UnlinkChain(element); }

void Chains::DeleteAllChain() {
  Chain* c = _first;
  while (c) {
    Chain* next = c->_next;
    delete c;
    c = next;
  }
  _first = _last = nullptr;
  _count = 0;
}

Chain* Chains::GetChain(uint64_t index) const {
  Chain* c = _first;
  while (c && index--) c = c->_next;
  return c;
}
