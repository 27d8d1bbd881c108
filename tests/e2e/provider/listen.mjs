import { once } from 'node:events';

// Opens `server` on the IPv4 loopback address and answers with its port; 0 lets the system choose.
export async function listen(server, port) {
  server.listen(port, '127.0.0.1');
  await once(server, 'listening');
  return server.address().port;
}
