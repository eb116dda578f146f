// A folder's files as a tree for the files tab: folders first, then files,
// each in natural name order. Pure: tested under Node.
import { naturalCompare } from './format.js';

// files: [{relativePath, ...}] → {name, path, folders: [...], files: [...]}
export function buildTree(files) {
  const root = { name: '', path: '', folders: new Map(), files: [] };
  for (const file of files) {
    const parts = String(file.relativePath).split('/').filter(Boolean);
    let node = root;
    parts.slice(0, -1).forEach((part, i) => {
      if (!node.folders.has(part)) node.folders.set(part, { name: part, path: parts.slice(0, i + 1).join('/'), folders: new Map(), files: [] });
      node = node.folders.get(part);
    });
    node.files.push({ ...file, name: parts[parts.length - 1] || file.relativePath });
  }
  return order(root);
}

function order(node) {
  return {
    name: node.name,
    path: node.path,
    folders: [...node.folders.values()].sort((a, b) => naturalCompare(a.name, b.name)).map(order),
    files: node.files.sort((a, b) => naturalCompare(a.name, b.name)),
  };
}

// Files under a node, all levels (for a folder's summary line).
export function countFiles(node) {
  return node.files.length + node.folders.reduce((sum, folder) => sum + countFiles(folder), 0);
}
