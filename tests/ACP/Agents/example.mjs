// node example.mjs SDK
//
// The example agent of the protocol's own library, which lies in the folder SDK. It wants a global that Node has by
// itself from 19 on.

import { webcrypto } from "node:crypto";

globalThis.crypto ??= webcrypto;
await import(`${process.argv[2]}/dist/examples/agent.js`);
