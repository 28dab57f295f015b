// SPDX-License-Identifier: Apache-2.0
// Bundles the page's modules into one file: node build.mjs [FOLDER] (default bundle).
import { build } from "esbuild";
import { readFileSync } from "node:fs";
import { dirname, resolve } from "node:path";
import { fileURLToPath } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));

await build({
  absWorkingDir: here,
  entryPoints: ["src/main.js"],
  outfile: resolve(process.argv[2] ?? resolve(here, "bundle"), "app.js"),
  bundle: true,
  minify: true,
  format: "iife",
  target: "es2020",
  charset: "utf8",
  legalComments: "eof",
  banner: { js: "// SPDX-License-Identifier: Apache-2.0 AND MIT\n// The live view's script, built from src/ by build.mjs." },
  // Whoever passes the file on passes on the terms of what it contains.
  footer: { js: `/*!\n${readFileSync(resolve(here, "node_modules/three/LICENSE"), "utf8").trim()}\n*/` },
  logLevel: "warning",
});
