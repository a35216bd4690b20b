// Checks objects, YAML on standard input, against the types of the Kubernetes API, twice: its JSON
// schemas know what is required and which words are possible, the TypeScript declarations know every
// field there is. Ends with 1 and a line for each finding.
// Usage: npm ci && render TABLE IMAGE | node check.mjs
import { readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";
import ts from "typescript";
import { parseAllDocuments } from "yaml";
import * as v1 from "kubernetes-models/v1";
import * as appsV1 from "kubernetes-models/apps/v1";
import * as networkingV1 from "kubernetes-models/networking.k8s.io/v1";

const groups = {
    "v1": { models: v1, module: "kubernetes-models/v1" },
    "apps/v1": { models: appsV1, module: "kubernetes-models/apps/v1" },
    "networking.k8s.io/v1": { models: networkingV1, module: "kubernetes-models/networking.k8s.io/v1" },
};
const findings = [];

// Kubernetes reads YAML 1.1, in which also yes, no, on and off are no strings.
const objects = parseAllDocuments(readFileSync(0, "utf8"), { version: "1.1" }).map((document, i) => {
    for (const e of document.errors) findings.push(`object ${i}: ${e.message}`);
    return document.toJS();
});
if (objects.length === 0) findings.push("no objects");

const nameOf = (o) => `${o?.kind} ${o?.metadata?.name}`;
const known = objects.filter((o) => {
    const Model = groups[o?.apiVersion]?.models[o.kind];
    if (!Model) return findings.push(`${nameOf(o)}: unknown kind or apiVersion`), false;
    try {
        new Model(structuredClone(o)).validate();
    } catch (e) {
        findings.push(`${nameOf(o)}: ${e.message}`);
    }
    return true;
});

// A program that is only compiled: one constant for each object, its type written behind it.
const source = known.map((o, i) =>
    `import type { I${o.kind} as T${i} } from "${groups[o.apiVersion].module}";\n` +
    `export const o${i}: T${i} = ${JSON.stringify(o, null, 1)};\n`).join("");
const file = fileURLToPath(new URL("objects.ts", import.meta.url));
const options = { strict: true, noEmit: true, skipLibCheck: true, types: [],
                  module: ts.ModuleKind.NodeNext, moduleResolution: ts.ModuleResolutionKind.NodeNext };
const host = ts.createCompilerHost(options);
const { getSourceFile, fileExists } = host;
host.fileExists = (name) => name === file || fileExists(name);
host.getSourceFile = (name, version, ...rest) =>
    name === file ? ts.createSourceFile(name, source, version) : getSourceFile(name, version, ...rest);
for (const d of ts.getPreEmitDiagnostics(ts.createProgram([file], options, host)))
    findings.push(ts.flattenDiagnosticMessageText(d.messageText, "\n  "));

for (const f of findings) console.error(f);
console.log(`${objects.length} objects, ${findings.length} findings`);
process.exitCode = findings.length > 0 ? 1 : 0;
