// One of the two authorization servers: a TLS port, oidc-provider behind it, and between the two
// the counting, the faults and the small adaptations.

import { readFileSync } from 'node:fs';
import { createServer } from 'node:https';
import { join } from 'node:path';

import Provider from 'oidc-provider';

import { readBody, withBody } from './body.mjs';
import { configurationOf, PROFILES } from './configuration.mjs';
import { befallsTheAnswer, Faults, isFailure, lieInWait, misbehave } from './faults.mjs';
import { Gate } from './gate.mjs';
import { listen } from './listen.mjs';
import { errorPage, serveInteraction } from './pages.mjs';
import { Secrets } from './secrets.mjs';
import { adaptAuthorization, completeRevocation, takeClientSecret } from './shim.mjs';

const NO_COUNTS = {
  authorize: 0, codeExchanges: 0, refreshes: 0, revocations: 0, failures: 0, elsewhere: 0,
};
const COUNTED_GRANTS = { authorization_code: 'codeExchanges', refresh_token: 'refreshes' };

export class Face {
  #callback;
  #certificate = 'server';
  #certificateFolder;
  #connections = new Map();
  #defaults;
  #provider;
  #routes;
  #server;

  constructor(name, registration, { directory, accessTokenSeconds }) {
    this.name = name;
    this.registration = registration;
    this.faults = new Faults();
    this.secrets = new Secrets();
    this.gate = new Gate();
    this.#certificateFolder = directory;
    this.#defaults = { accessTokenSeconds };
    this.#routes = PROFILES[name].routes;
    this.#server = createServer({ ...this.#keyAndCertificate(), keepAliveTimeout: 65000 });
    this.#server.on('connection', (socket) => this.#remember(socket));
    this.#start();
  }

  async open(port) {
    this.host = `localhost:${await listen(this.#server, port)}`;
    this.issuer = `https://${this.host}`;
    this.#provider = new Provider(this.issuer,
      configurationOf(this.name, this.registration, this.settings, errorPage));
    this.#provider.on('server_error', (_context, error) => console.error(error));
    this.#callback = this.#provider.callback();
    this.#server.on('request', (request, response) => this.#serve(request, response));
  }

  // What a client needs to know about this server.
  describe() {
    return { issuer: this.issuer, host: this.host, ...this.registration };
  }

  reset() {
    this.faults.clear();
    this.gate.open();
    this.#start();
    this.useCertificate('server');
  }

  // New connections are greeted with the certificate `name`; those that exist are cut.
  useCertificate(name) {
    if (name === this.#certificate) return;
    this.#certificate = name;
    this.#server.setSecureContext(this.#keyAndCertificate());
    this.#server.closeAllConnections();
  }

  async introspect(token) {
    const { AccessToken, RefreshToken } = this.#provider;
    const found = await AccessToken.find(token) ?? await RefreshToken.find(token);
    if (!found) return { active: false };
    return {
      active: found.isValid,
      kind: found.kind,
      sub: found.accountId,
      scope: found.scope,
      expiresIn: found.remainingTTL,
      consumed: Boolean(found.consumed),
    };
  }

  #start() {
    this.counts = { ...NO_COUNTS };
    this.settings = Object.assign(this.settings ?? {}, this.#defaults);
  }

  #keyAndCertificate() {
    const stem = join(this.#certificateFolder, this.#certificate);
    return { key: readFileSync(`${stem}.key`), cert: readFileSync(`${stem}.pem`) };
  }

  async #serve(request, response) {
    this.secrets.watch(response);
    try {
      await this.#route(request, response);
    } catch (error) {
      console.error(`${this.name}: ${error.stack}`);
      response.destroy();
    }
  }

  #route(request, response) {
    const path = request.url.split('?', 1)[0];
    if (path.startsWith('/interaction/')) {
      return serveInteraction(this.#provider, request, response);
    }
    if (path === this.#routes.token) return this.#serveToken(request, response);
    if (path === this.#routes.revocation) return this.#serveRevocation(request, response);
    if (path === this.#routes.authorization) return this.#serveAuthorization(request, response);
    if (path === '/elsewhere') this.counts.elsewhere += 1;
    return this.#callback(request, response);
  }

  #serveAuthorization(request, response) {
    this.counts.authorize += 1;
    request.url = adaptAuthorization(request.url);
    return this.#pass(request, response);
  }

  async #serveToken(request, response) {
    const form = this.secrets.heard(new URLSearchParams((await readBody(request)).toString()));
    const counted = COUNTED_GRANTS[form.get('grant_type')];
    if (counted) this.counts[counted] += 1;
    if (await this.#suffer('token', response)) return undefined;
    if (!takeClientSecret(form, this.registration)) return this.#refuseClient(response);
    return this.#pass(withBody(request, form.toString()), response);
  }

  async #serveRevocation(request, response) {
    const form = this.secrets.heard(new URLSearchParams((await readBody(request)).toString()));
    this.counts.revocations += 1;
    if (await this.#suffer('revoke', response)) return undefined;
    completeRevocation(form, this.registration);
    return this.#pass(withBody(request, form.toString()), response);
  }

  async #suffer(endpoint, response) {
    const fault = this.secrets.echoedIn(this.faults.take(endpoint));
    if (!fault) return false;
    if (isFailure(fault)) this.counts.failures += 1;
    const means = { gate: this.gate, reset: (socket) => this.#resetConnection(socket) };
    if (!befallsTheAnswer(fault)) return misbehave(fault, response, means);
    lieInWait(fault, response, means);
    return false;
  }

  // The TCP connections by the client's port: a TLS socket cannot be reset, only the one below it.
  #remember(socket) {
    const port = socket.remotePort;
    this.#connections.set(port, socket);
    socket.once('close', () => this.#connections.delete(port));
  }

  #resetConnection({ remotePort }) {
    this.#connections.get(remotePort)?.resetAndDestroy();
  }

  #refuseClient(response) {
    this.counts.failures += 1;
    response.writeHead(401, { 'content-type': 'application/json' });
    response.end(JSON.stringify({
      error: 'invalid_client', error_description: 'wrong client secret',
    }));
  }

  async #pass(request, response) {
    await this.#callback(request, response);
    if (response.statusCode >= 400) this.counts.failures += 1;
  }
}
