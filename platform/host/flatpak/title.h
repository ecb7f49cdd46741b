#pragma once
/// @file
/// What a Flatpak calls itself, from the files that its maker put into it: the component's description
/// (files/share/metainfo/<id>.metainfo.xml or files/share/appdata/<id>.appdata.xml, as AppStream describes them) and
/// the exported desktop entry.
///
/// Thread rule: callable from any thread.

#include <string>

namespace flatpak {

/// The name for people in the language of `locale` ("de_DE.utf8"): the description's, else the desktop entry's, else
/// the description's in English, else the id. `deployment` is a descriptor of the deployed folder.
std::string ReadTitle(int deployment, const std::string& id, const std::string& locale);

}  // namespace flatpak
