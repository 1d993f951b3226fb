// node agent.mjs SDK
//
// An agent over the protocol's own library, which lies in the folder SDK. A prompt is a command and its arguments as a
// JSON array; the turn tells what came of it in a message.

import { randomUUID } from "node:crypto";
import { Readable, Writable } from "node:stream";

const acp = await import(`${process.argv[2]}/dist/acp.js`);
const { session } = acp.methods.client;

const update = (client, sessionId, body) => client.notify(session.update, { sessionId, update: body });
const message = (text) => ({ sessionUpdate: "agent_message_chunk", content: { type: "text", text }, messageId: null });

// What agents of today send beyond the tables of a client.
const oddities = [
    { sessionUpdate: "usage_update", used: 53000, size: 200000, cost: null },
    { sessionUpdate: "session_info_update", title: "A title", updatedAt: null },
    { sessionUpdate: "of_next_year", payload: [1, null] },
    { sessionUpdate: "agent_message_chunk", content: { type: "image", data: "AA==", mimeType: "image/png" } },
    { sessionUpdate: "tool_call", toolCallId: "1", title: "T", kind: "dance", status: null, locations: null, _meta: null },
    { sessionUpdate: "available_commands_update", availableCommands: [{ name: "go", description: null, input: null }] },
];

const commands = {
    // The outcome of a request to the client, as it is or as its error.
    ask: async (client, sessionId, method, params) => {
        let outcome;
        try {
            outcome = await client.request(method, { sessionId, ...params });
        } catch (error) {
            outcome = { code: error.code, message: error.message };
        }
        await update(client, sessionId, message(JSON.stringify(outcome ?? null)));
    },
    odd: async (client, sessionId) => {
        for (const body of oddities) await update(client, sessionId, body);
        setTimeout(() => update(client, sessionId, { ...oddities[0], used: 53001 }), 50); // behind the turn's answer
    },
    fail: async (client, sessionId, code) => {
        throw new acp.RequestError(code, "out of quota", { retryAfter: null });
    },
    exit: async (client, sessionId, status) => process.exit(status),
};

acp.agent({ name: "test-agent" })
    .onRequest("initialize", () => ({
        protocolVersion: acp.PROTOCOL_VERSION,
        agentCapabilities: { loadSession: null, sessionCapabilities: { list: {}, resume: null } },
        authMethods: null,
        _meta: null,
    }))
    .onRequest("session/new", () => ({ sessionId: randomUUID(), modes: null, configOptions: null }))
    .onRequest("session/list", ({ params }) => ({
        sessions: [{ sessionId: params.cursor ?? "first", cwd: params.cwd, title: null, updatedAt: null }],
        nextCursor: params.cursor ? null : "second",
    }))
    .onRequest("session/prompt", async ({ params, client }) => {
        const [command, ...rest] = JSON.parse(params.prompt[0].text);
        await commands[command](client, params.sessionId, ...rest);
        return { stopReason: "end_turn", usage: null };
    })
    .connect(acp.ndJsonStream(Writable.toWeb(process.stdout), Readable.toWeb(process.stdin)));
