document.title = 'общее';
