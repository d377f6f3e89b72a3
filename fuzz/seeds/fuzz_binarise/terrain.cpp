class CfgPatches { class t { units[] = {}; }; };
class CfgWorlds { class DefaultWorld { class clutter { class Grass {}; }; }; class Abel: DefaultWorld { worldName = "\x\abel.wrp"; cutscenes[] = {"intro"}; }; };
class CfgSurfaces { class Dirt { character = "DirtClutter"; }; class Sea { character = "Empty"; }; };
class CfgSurfaceCharacters { class DirtClutter { probability[] = {0.5, 0.6}; names[] = {"Grass", "Stone"}; }; };
