// Keeps everything one authorization server stores in a map; nothing is ever evicted, so a long
// test run sees no token vanish. The library asks for one adapter per kind of record.

export function makeStorage() {
  const records = new Map();

  return (kind) => {
    const keyOf = (id) => `${kind}:${id}`;

    function findWhere(property, value) {
      for (const [key, record] of records) {
        if (key.startsWith(`${kind}:`) && record[property] === value) return record;
      }
      return undefined;
    }

    return {
      async upsert(id, record) { records.set(keyOf(id), record); },
      async find(id) { return records.get(keyOf(id)); },
      async findByUid(uid) { return findWhere('uid', uid); },
      async findByUserCode(userCode) { return findWhere('userCode', userCode); },
      async destroy(id) { records.delete(keyOf(id)); },

      async consume(id) {
        records.get(keyOf(id)).consumed = Math.floor(Date.now() / 1000);
      },

      async revokeByGrantId(grantId) {
        for (const [key, record] of records) {
          if (key.startsWith(`${kind}:`) && record.grantId === grantId) records.delete(key);
        }
      },
    };
  };
}
