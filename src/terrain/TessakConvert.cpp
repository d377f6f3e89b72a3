// Turning a loaded terrain into another kind: the editable kinds keep the elevations, layers,
// layer table, templates and objects; a binarised terrain made from an editable one gets empty
// engine sections (no roads, no map display, empty cell flags) that the game can rebuild.
#include <algorithm>
#include <cstring>

#include "terrain/Tessak.h"

namespace {
void zeros(CompressedStruct& cs, uint32_t element_size, uint64_t count) {
  cs.cs_Release();
  cs.cs_SetElementSize(element_size);
  cs.cs_Allocate(count);
  cs.cs_SetModified(true);
}

uint32_t editable_version(int kind) {
  switch (kind) {
    case Tessak::KIND_8WVR: return 8;
    case Tessak::KIND_9WBV: return 9;
    case Tessak::KIND_4WVR: return 4;
    default: return 1;
  }
}
}  // namespace

void Tessak::_convert(int kind, uint32_t version) {
  if (kind == KIND_OPRW)
    _to_oprw(version ? version : (_kind == KIND_OPRW ? _version : 25));
  else
    _to_editable(kind);
}

void Tessak::_to_editable(int kind) {
  if (kind == _kind) return;
  for (auto const& o : _objects)
    if (!wrp_TemplateOf(o)) throw WRP_NO_TEMPLATE;
  if (kind == KIND_4WVR || kind == KIND_1WVR) {
    _check_one_grid(kind, false);  // before anything changes: a refused conversion keeps the terrain
    // One grid only: a coarser layer grid is spread over the map grid when it divides it evenly.
    if (_layerSize.x != _mapSize.x || _layerSize.y != _mapSize.y) {
      if (!_layerSize.x || !_layerSize.y || _mapSize.x % _layerSize.x || _mapSize.y % _layerSize.y)
        throw WRP_CANNOT_CONVERT;
      uint32_t fx = _mapSize.x / _layerSize.x, fy = _mapSize.y / _layerSize.y;
      std::vector<uint16_t> spread(_mapCells());
      uint16_t const* index = wrp_LayerIndex();
      for (uint64_t y = 0; y < _mapSize.y; ++y)
        for (uint64_t x = 0; x < _mapSize.x; ++x)
          spread[y * _mapSize.x + x] = index[(y / fy) * _layerSize.x + x / fx];
      _layerSize = _mapSize;
      wrp_SetLayerIndex(spread.data());
    }
  }
  for (Grid* g : {&_cellFlags, &_sounds, &_objectGrid, &_mapGrid}) {
    g->cs.cs_Release();
    g->stored = nullptr;
  }
  _layers.stored = nullptr;
  for (CompressedStruct* c : {&_clutter, &_bytes1, &_bytes2, &_bytes3}) c->cs_Release();
  _roads.clear();
  _roadCellCounts.clear();
  _mapInfos.clear();
  _landModels.clear();
  _peaks.clear();
  _v32Head.clear();
  _v32Mid.clear();
  _v32Tail.clear();
  if (kind != KIND_1WVR) _netsTail.clear();
  _kind = kind;
  _version = editable_version(kind);
}

void Tessak::_to_oprw(uint32_t version) {
  static constexpr uint32_t known[] = {2, 3, 17, 18, 20, 23, 24, 25, 32, 33};
  if (std::find(std::begin(known), std::end(known), version) == std::end(known)) throw WRP_BAD_VERSION;
  if (_kind == KIND_OPRW && version == _version) return;
  if (version == 2 && (_layerSize.x != 256 || _layerSize.y != 256 || _mapSize.x != 256 || _mapSize.y != 256))
    throw WRP_CANNOT_CONVERT;
  for (auto const& o : _objects)
    if (!wrp_TemplateOf(o)) throw WRP_NO_TEMPLATE;

  bool const modern = version > 3;
  uint64_t const layer = _layerCells(), map = _mapCells();
  _version = version;  // the array coding below follows the new version
  _lzoIn23 = false;
  zeros(_cellFlags.cs, modern ? 2 : 4, layer);
  zeros(_sounds.cs, 1, layer);
  zeros(_objectGrid.cs, 4, layer);
  zeros(_mapGrid.cs, 4, layer);
  for (Grid* g : {&_cellFlags, &_sounds, &_objectGrid, &_mapGrid, &_layers}) g->stored = nullptr;
  _layers.cs.cs_SetModified(true);
  _elevations.cs_SetModified(true);
  if (!modern)
    zeros(_clutter, 4, layer);
  else if (version < 21)
    zeros(_clutter, 2, layer);
  else
    zeros(_clutter, 1, map);
  zeros(_bytes1, 1, map);
  zeros(_bytes2, 1, layer);
  zeros(_bytes3, 1, map);
  _roads.clear();
  _roadCellCounts.assign(modern ? layer : 0, 0);
  _mapInfos.clear();
  _v32Head.assign(version >= 32 ? 128 + 136 + 9 : 0, 0);
  _v32Mid.clear();
  _v32Tail.clear();
  _netsTail.clear();
  _finalWord = -1;
  _maxObjectId = 0;
  for (auto const& o : _objects) _maxObjectId = std::max<int32_t>(_maxObjectId, int32_t(o.id));
  _kind = KIND_OPRW;
}
