# kiv::graphics: what the GPU code compiles and links against. Windows has Direct3D 12 and DXGI itself;
# elsewhere Direct3D 12 is vkd3d over the Vulkan loader, which also enumerates the adapters.
add_library(kiv_graphics INTERFACE)
add_library(kiv::graphics ALIAS kiv_graphics)
if(WIN32)
  target_link_libraries(kiv_graphics INTERFACE d3d12 dxgi dxguid)
  target_compile_definitions(kiv_graphics INTERFACE NOMINMAX)
else()
  find_package(Vulkan REQUIRED)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(KIV_VKD3D REQUIRED IMPORTED_TARGET libvkd3d)
  target_link_libraries(kiv_graphics INTERFACE PkgConfig::KIV_VKD3D Vulkan::Vulkan)
  target_compile_definitions(kiv_graphics INTERFACE WIDL_EXPLICIT_AGGREGATE_RETURNS NOMINMAX)
endif()
