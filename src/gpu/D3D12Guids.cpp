// The Direct3D 12 interface identifiers (IID_ID3D12Heap, ...) that the library uses. vkd3d declares them
// but no library of it defines them, and MinGW's dxguid lacks the Direct3D 12 ones, so the library defines
// them itself: INITGUID turns the header's declarations into definitions. Windows SDK builds define them
// as selectany, so they coexist with dxguid.lib.
#define INITGUID
#include "kivml/gpu/D3D12.h"
