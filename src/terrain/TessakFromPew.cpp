// A terrain from a terrain-editor project: the ground, the first layer's materials and the placed
// objects carry over; the project's zones, road blocks and drawing aids have no place in a terrain.
#include <algorithm>
#include <unordered_map>

#include "core/GuardedCall.h"
#include "terrain/Grindel.h"
#include "terrain/Tessak.h"

int Tessak::wrp_CreateFromPew(unsigned int kind, Grindel* pew, bool (*cb)(char const*, ...)) {
  return bis_guarded_call<WrpErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (cb) _io.io_SetStdioCallBack(cb);
    if (!pew || !pew->pew_IsLoaded()) throw GE_INVALID_FILE;
    if (!SignatureOfKind(int(kind))) throw WRP_NOT_WRP;
    _reset();
    _io.io_callback("...Header\r\n");
    PewElevations const& e = pew->elevations;
    PewLayer const* layer = pew->layers.empty() ? nullptr : &pew->layers.front();
    uLongPair map{e.sizeX, e.sizeY};
    uLongPair lay = layer && layer->sizeX ? uLongPair{layer->sizeX, layer->sizeY} : map;
    if (!map.x || !map.y) map = lay;
    if (uint64_t(map.x) * map.y > kMaxGridCells || uint64_t(lay.x) * lay.y > kMaxGridCells || !map.x || !map.y)
      throw WRP_CANNOT_CONVERT;
    // Lists edited in memory must still fill their grids.
    bool heights = !e.heights.empty(), cells = layer && layer->sizeX;
    if ((heights && e.heights.size() != uint64_t(map.x) * map.y) ||
        (cells && layer->cells.size() != uint64_t(lay.x) * lay.y))
      throw WRP_CANNOT_CONVERT;
    wrp_SetGrids(lay, map, pew->pew_GridSize());

    _io.io_callback("...Elevations\r\n");
    if (heights) wrp_SetElevations(e.heights.data());

    _io.io_callback("...Textures indices\r\n");
    if (cells) wrp_SetLayerIndex(layer->cells.data());

    _io.io_callback("...Textures\r\n");
    if (layer)
      for (PewTerrainMaterial const& m : layer->materials) {
        WRP_Texture t;
        t.names = m.names;
        t.marker = m.marker;
        _textures.push_back(std::move(t));
      }
    if (_textures.empty()) _textures.emplace_back();

    _io.io_callback("...Objects\r\n");
    std::unordered_map<uint32_t, uint32_t> index;  // model id to template position
    for (PewObjectTemplate const& t : pew->templates) {
      index.emplace(t.modelId, uint32_t(_templates.size()));
      _templates.push_back(t.model);
    }
    _objects.resize(pew->objects.size());
    for (size_t i = 0; i < _objects.size(); ++i) {
      PewObject const& o = pew->objects[i];
      auto it = index.find(o.modelId);
      if (it == index.end()) throw WRP_NO_TEMPLATE;
      _objects[i].id = o.objectId;
      _objects[i].model = it->second;
      _objects[i].transform = o.transform;
    }
    if (kind != KIND_8WVR) _convert(int(kind), 0);
    return 0;
  });
}
