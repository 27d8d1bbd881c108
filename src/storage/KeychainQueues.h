// The names of what the keychain store keeps one of per process.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "QVROAuth2Client/platform/Executor.h"

// The parts joined with ".", after the host's bundle identifier when it has one.
std::string joinedIdentifier(std::initializer_list<std::string_view> parts);

// A serial queue labelled with the bundle identifier, the class and the queue's name.
qvr::Ref<qvr::Executor> makeKeychainQueue(std::string_view name);
