#!/usr/bin/env bash
# Checks every workflow in .github/workflows with GitHub's own workflow parser
# (@actions/workflow-parser from the npm registry: the schema of the workflow
# syntax and the checks of expressions, cron lines and job references), kept
# outside the tree in ${XDG_CACHE_HOME:-~/.cache}/holdenmere/.
#
#   scripts/check-workflows.sh            installs the parser if missing, then checks
#   scripts/check-workflows.sh --install  installs the parser if missing (scripts/install-deps.sh)
#   scripts/check-workflows.sh --offline  checks with the parser already installed, never
#                                         reaching the network (the ctest structure.workflows)
#
# Without node and npm (or, offline, without the parser) it says so and skips:
# status 0, or 77 with --offline, which ctest reports as skipped.
set -euo pipefail
cd "$(dirname "$0")/.."

parser_version=0.3.61
cache=${XDG_CACHE_HOME:-$HOME/.cache}/holdenmere/workflow-parser-$parser_version
mode=check
case "${1:-}" in
  "") ;;
  --install) mode=install ;;
  --offline) mode=offline ;;
  *) echo "usage: $0 [--install | --offline]" >&2; exit 64 ;;
esac

skip() {
  echo "check-workflows: skipped: $*" >&2
  [ "$mode" = offline ] && exit 77
  exit 0
}

if [ ! -f "$cache/node_modules/@actions/workflow-parser/package.json" ]; then
  [ "$mode" != offline ] ||
    skip "GitHub's workflow parser is not installed in $cache (scripts/install-deps.sh installs it when npm is there)"
  command -v npm >/dev/null || skip "npm is not installed, so GitHub's workflow parser cannot be"
  echo "Installing @actions/workflow-parser@$parser_version into $cache" >&2
  mkdir -p "$(dirname "$cache")"
  staging=$(mktemp -d "$cache.XXXXXX")
  limit=()
  if command -v timeout >/dev/null; then limit=(timeout 600); fi
  if ! ${limit[@]+"${limit[@]}"} npm install --prefix "$staging" --no-audit --no-fund --no-save --loglevel=error \
    "@actions/workflow-parser@$parser_version" >&2; then
    rm -rf "$staging"
    # For install-deps.sh a missing parser only means a skipped check.
    [ "$mode" != install ] || skip "npm could not install @actions/workflow-parser@$parser_version"
    echo "check-workflows: error: npm could not install @actions/workflow-parser@$parser_version" >&2
    exit 1
  fi
  # Another run may have got there first: its copy is as good.
  if [ -e "$cache" ]; then rm -rf "$staging"; else mv "$staging" "$cache"; fi
fi
[ "$mode" != install ] || exit 0

command -v node >/dev/null || skip "node is not installed"
shopt -s nullglob
workflows=(.github/workflows/*.yml .github/workflows/*.yaml)
[ ${#workflows[@]} -gt 0 ] || { echo "check-workflows: error: no workflow in .github/workflows" >&2; exit 1; }

# The parser imports its schema as a bare JSON module, as bundlers allow:
# a loader hook hands node such files as modules exporting the JSON.
# shellcheck disable=SC2016 # the program is JavaScript: its ${...} are node's
node --input-type=module -e '
import * as nodeModule from "node:module";
import { readFileSync } from "node:fs";
import { pathToFileURL } from "node:url";

if (typeof nodeModule.register !== "function") {
  console.error(`check-workflows: skipped: node ${process.version} cannot load the parser (18.19 or later can)`);
  process.exit(77);
}
nodeModule.register("data:text/javascript," + encodeURIComponent(`
  import { readFile } from "node:fs/promises";
  export async function load(url, context, next) {
    if (!url.endsWith(".json")) return next(url, context);
    return { format: "module", shortCircuit: true, source: "export default " + await readFile(new URL(url), "utf8") };
  }`));
const [cache, ...files] = process.argv.slice(1);
const parser = await import(pathToFileURL(`${cache}/node_modules/@actions/workflow-parser/dist/index.js`));

let failed = 0;
for (const file of files) {
  const parsed = parser.parseWorkflow({ name: file, content: readFileSync(file, "utf8") }, new parser.NoOperationTraceWriter());
  if (parsed.value) await parser.convertWorkflowTemplate(parsed.context, parsed.value);
  const errors = parsed.context.errors.getErrors();
  if (!parsed.value && errors.length === 0) errors.push({ message: `${file}: not a workflow` });
  for (const error of errors) console.error(error.message);
  console.log(`${file}: ${errors.length === 0 ? "valid" : `${errors.length} error(s)`}`);
  if (errors.length > 0) failed += 1;
}
process.exit(failed === 0 ? 0 : 1);
' "$cache" "${workflows[@]}"
