// The fields of the public client, shared by the files that its parts live in.
#pragma once

#include "QVROAuth2Client/QVROAuth2PublicClient.h"
#include "src/client/AtomicText.h"

struct QVROAuth2PublicClient::Fields {
  qvr::Text clientIdentifier;  // never changes
  qvr::Text clientSecret;      // never changes
  AtomicText scope;
  AtomicText codeVerifier;
  AtomicText codeChallenge;
  AtomicText codeChallengeMethod;
  AtomicText state;
};
