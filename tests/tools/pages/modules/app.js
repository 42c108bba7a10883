import { title } from './text.js';
document.getElementById('title').textContent = title;
