// main.cpp - a host as small as it gets: makes a display from settings, reads its size, drops it.
#include <loam/boot.h>
#include <loam/record.h>
#include <webdisplay.h>

#include <cstdio>

int main() {
    zBoot::StartModules();
    zRecord settings;
    settings.SetInt32("web_width", 1280, 0);
    settings.SetInt32("web_height", 720, 0);
    cWebDisplayBrowser* display = cWebDisplayCEFBrowserManager::CreateBrowser(settings, 50.0);
    long width = 0;
    long height = 0;
    display->GetSize(width, height);
    display->Release();
    zBoot::StopModules();
    std::printf("%ldx%ld\n", width, height);
    return width == 1280 && height == 720 ? 0 : 1;
}
