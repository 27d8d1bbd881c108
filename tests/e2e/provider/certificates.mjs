// Makes a throw-away certificate authority and the certificates it signs, with the openssl command.
// They are valid from some days ago, for tests that set the clock back.
//
// Beside the one good server certificate there are three that a careful client must refuse; they
// let a test see that it really does.

import { execFileSync } from 'node:child_process';
import { chmodSync, mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

export const CERTIFICATES = ['server', 'expired', 'selfsigned', 'otherhost'];

const LOOPBACK_NAMES = 'DNS:localhost,IP:127.0.0.1,IP:::1';

const CONFIGURATION = `
[ ca ]
default_ca = authority
[ authority ]
database = signed/index.txt
new_certs_dir = signed
certificate = ca.pem
private_key = ca.key
rand_serial = yes
default_md = sha256
policy = any_subject
unique_subject = no
copy_extensions = none
[ any_subject ]
commonName = supplied
[ req ]
distinguished_name = subject
prompt = no
[ subject ]
commonName = QVROAuth2Client tests
[ authority_extensions ]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[ loopback ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = ${LOOPBACK_NAMES}
[ other ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = DNS:other.example.org
`;

const NEW_KEY = ['-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes'];

function openssl(directory, ...words) {
  try {
    execFileSync('openssl', words, { cwd: directory, stdio: ['ignore', 'ignore', 'pipe'] });
  } catch (error) {
    throw new Error(`openssl ${words[0]} failed: ${error.stderr?.toString() || error.message}`);
  }
}

const VALIDITY_DAYS = 7; // before and after now

// As openssl takes it: YYYYMMDDHHMMSSZ.
function dateInDays(days) {
  const date = new Date(Date.now() + days * 24 * 60 * 60 * 1000);
  return `${date.toISOString().replace(/\..*|[-:T]/g, '')}Z`;
}

const USUAL_DATES = ['-startdate', dateInDays(-VALIDITY_DAYS), '-enddate', dateInDays(VALIDITY_DAYS)];

function makeSelfSigned(directory, name, subject, extensions) {
  openssl(directory, 'req', '-x509', '-config', 'openssl.cnf', ...NEW_KEY, '-days', '7',
    '-subj', `/CN=${subject}`, '-extensions', extensions,
    '-keyout', `${name}.key`, '-out', `${name}.pem`);
}

function makeSigned(directory, name, extensions, dates = USUAL_DATES, ...signer) {
  const request = `${name}.csr`;
  openssl(directory, 'req', '-new', '-config', 'openssl.cnf', ...NEW_KEY,
    '-subj', `/CN=${name}`, '-keyout', `${name}.key`, '-out', request);
  openssl(directory, 'ca', '-batch', '-notext', '-config', 'openssl.cnf',
    '-extensions', extensions, ...dates, ...signer, '-in', request, '-out', `${name}.pem`);
  rmSync(join(directory, request));
}

// Fills `directory` (made, mode 0700) with ca.pem and NAME.pem and NAME.key for every name above.
export function makeCertificates(directory) {
  mkdirSync(join(directory, 'signed'), { recursive: true });
  chmodSync(directory, 0o700);
  writeFileSync(join(directory, 'openssl.cnf'), CONFIGURATION);
  writeFileSync(join(directory, 'signed', 'index.txt'), '');
  makeSigned(directory, 'ca', 'authority_extensions', USUAL_DATES, '-selfsign');
  makeSigned(directory, 'server', 'loopback');
  makeSigned(directory, 'otherhost', 'other');
  makeSigned(directory, 'expired', 'loopback',
    ['-startdate', '20200101000000Z', '-enddate', '20200201000000Z']);
  makeSelfSigned(directory, 'selfsigned', 'localhost', 'loopback');
}
