#define _ARMA_
: Base
enum { a, b = 5, OrdinalEnum = 9 };
class CfgPatches { class mine { units[] = {"Car"}; weapons[] = {}; requiredAddons[] = {"base"}; requiredVersion = 1.5; }; };
class Outside;
class CfgVehicles { class Outside; class Car: Outside { scope = 2; displayName = "Car"; hidden[] += {1, 2.5e-005, "x", {0x10, -3}}; }; delete Old; };
